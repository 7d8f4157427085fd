#include "json_rpc/json_rpc_writer.h"

#include "json_rpc/json_rpc_text.h"
#include "vexa/yajl_gen.h"

namespace {

template <typename Text>
void write_request(Text& text, const JSON_RPC_Request& request) {
  text.literal("method");
  text << request.method;
  if (request.params.is_null()) return;
  text.literal("params");
  text << request.params;
}

template <typename Text>
void write_response(Text& text, const JSON_RPC_Response& response) {
  text.literal("result");
  text << response.result;
}

template <typename Text>
void write_error(Text& text, const JSON_RPC_Response_Error& error) {
  text.literal("error");
  text.map_open();
  text.literal("code");
  text.integer(error.code);
  text.literal("message");
  text << error.message;
  if (!error.data.is_null()) {
    text.literal("data");
    text << error.data;
  }
  text.map_close();
}

/// The members that follow the id; false for an object of none of the four kinds.
template <typename Text>
bool write_members(Text& text, const JSON_RPC_Object& object) {
  switch (object.type) {
    case JSON_RPC_Object::TYPE_NOTIFY:
    case JSON_RPC_Object::TYPE_REQUEST:
      write_request(text, static_cast<const JSON_RPC_Request&>(object));
      return true;
    case JSON_RPC_Object::TYPE_RESPONSE:
      write_response(text, static_cast<const JSON_RPC_Response&>(object));
      return true;
    case JSON_RPC_Object::TYPE_RESPONSE_ERROR:
      write_error(text, static_cast<const JSON_RPC_Response_Error&>(object));
      return true;
    default:
      return false;
  }
}

}  // namespace

int yajl_gen_json_rpc_request(yajl_gen_t* gen, const JSON_RPC_Request& request) {
  YAJL_Gen writer(gen, false);
  write_request(writer, request);
  return yajl_gen_status_ok;
}

int yajl_gen_json_rpc_response(yajl_gen_t* gen, const JSON_RPC_Response& response) {
  YAJL_Gen writer(gen, false);
  write_response(writer, response);
  return yajl_gen_status_ok;
}

int yajl_gen_json_rpc_response_error(yajl_gen_t* gen, const JSON_RPC_Response_Error& error) {
  YAJL_Gen writer(gen, false);
  write_error(writer, error);
  return yajl_gen_status_ok;
}

bool JSON_RPC_Writer::write(const JSON_RPC_Object& object, YAJL_Printer& printer) {
  close();
  YAJL_Gathered_Output output(printer);
  JSON_RPC_Text text(output);
  text.map_open();
  text.literal("jsonrpc");
  text << object.version;
  if (object.type != JSON_RPC_Object::TYPE_NOTIFY) {
    text.literal("id");
    text << object.id;
  }
  const bool known = write_members(text, object);
  text.map_close();
  output.flush();
  return known && text.ok();
}

bool JSON_RPC_Writer::write(JSON_Generator& generator, YAJL_Printer& printer) {
  if (open(printer) == nullptr) return false;
  const bool written = generator.generate(gen_.get());
  close();
  return written;
}
