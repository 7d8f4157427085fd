#include "json_rpc/json_rpc_writer.h"

#include "vexa/yajl_gathered_output.h"
#include "vexa/yajl_gen.h"

using json_spirit::Value;

namespace {

void write_request(YAJL_Gen& gen, const JSON_RPC_Request& request) {
  gen.literal("method");
  gen << request.method;
  if (request.params.is_null()) return;
  gen.literal("params");
  gen << request.params;
}

void write_response(YAJL_Gen& gen, const JSON_RPC_Response& response) {
  gen.literal("result");
  gen << response.result;
}

void write_error(YAJL_Gen& gen, const JSON_RPC_Response_Error& error) {
  gen.literal("error");
  gen.map_open();
  gen.literal("code");
  gen.integer(error.code);
  gen.literal("message");
  gen << error.message;
  if (!error.data.is_null()) {
    gen.literal("data");
    gen << error.data;
  }
  gen.map_close();
}

/// The members that follow the id; false for an object of none of the four kinds.
bool write_members(YAJL_Gen& gen, const JSON_RPC_Object& object) {
  switch (object.type) {
    case JSON_RPC_Object::TYPE_NOTIFY:
    case JSON_RPC_Object::TYPE_REQUEST:
      write_request(gen, static_cast<const JSON_RPC_Request&>(object));
      return true;
    case JSON_RPC_Object::TYPE_RESPONSE:
      write_response(gen, static_cast<const JSON_RPC_Response&>(object));
      return true;
    case JSON_RPC_Object::TYPE_RESPONSE_ERROR:
      write_error(gen, static_cast<const JSON_RPC_Response_Error&>(object));
      return true;
    default:
      return false;
  }
}

/// A generator that prints by `print`; null when out of memory. Where it prints to is told once:
/// yajl takes a second context for a replacement of its own buffer, and frees the first.
yajl_gen_t* new_generator(yajl_print_t print, void* context) {
  yajl_gen_t* const gen = yajl_gen_alloc(nullptr);
  if (gen != nullptr) yajl_gen_config(gen, yajl_gen_print_callback, print, context);
  return gen;
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

yajl_gen_t* JSON_RPC_Writer::open(YAJL_Printer& printer) {
  close();
  gen_ = new_generator(&YAJL_Printer::print_s, static_cast<void*>(&printer));
  return gen_;
}

void JSON_RPC_Writer::close() {
  if (gen_ != nullptr) yajl_gen_free(gen_);
  gen_ = nullptr;
}

bool JSON_RPC_Writer::write(const JSON_RPC_Object& object, YAJL_Printer& printer) {
  close();
  YAJL_Gathered_Output output(printer);
  gen_ = new_generator(&YAJL_Gathered_Output::print_s, static_cast<void*>(&output));
  if (gen_ == nullptr) return false;
  bool known;
  bool written;
  {
    YAJL_Gen gen(gen_, false);
    gen.map_open();
    gen.literal("jsonrpc");
    gen << object.version;
    if (object.type != JSON_RPC_Object::TYPE_NOTIFY) {
      gen.literal("id");
      gen << object.id;
    }
    known = write_members(gen, object);
    gen.map_close();
    written = gen.ok();
  }
  close();
  output.flush();
  return known && written;
}

bool JSON_RPC_Writer::write(JSON_Generator& generator, YAJL_Printer& printer) {
  if (open(printer) == nullptr) return false;
  const bool written = generator.generate(gen_);
  close();
  return written;
}
