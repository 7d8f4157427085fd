#include "bench/request_path.h"

#include <new>

#include "bench/bare_yajl.h"
#include "bench/bench_channel.h"
#include "bench/give_up.h"
#include "json_rpc/json_rpc_dispatcher.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_writer.h"
#include "vexa/adopt.h"
#include "vexa/yajl_printer.h"

namespace {

/// Adds numbers; of objects it answers how many there are.
class Sum_Handler final : public JSON_RPC_Handler {
public:
  Sum_Handler() { silent_ = true; }

  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override {
    const JSON_RPC_Channel_var requester(channel);
    if (requester.null()) return -1;
    const JSON_RPC_Request& request = static_cast<const JSON_RPC_Request&>(*object);
    JSON_RPC_Response* const response = new (std::nothrow) JSON_RPC_Response(&request);
    JSON_RPC_Object_var handle;
    if (!vexa::adopt(handle, static_cast<JSON_RPC_Object*>(response))) return -1;
    response->result = result(request.params);
    return requester->send(handle);
  }

private:
  static std::int64_t result(const json_spirit::Value& params) {
    if (params.type() == json_spirit::obj_type) return params.get_obj().size();
    const json_spirit::Array& terms = params.get_array();
    if (!terms.empty() && terms.front().type() == json_spirit::obj_type) return terms.size();
    std::int64_t sum = 0;
    for (const json_spirit::Value& term : terms) sum += term.get_int64();
    return sum;
  }
};

/// Writes what is sent into a buffer.
class Buffer_Channel final : public Bench_Channel {
public:
  using Bench_Channel::send;
  int send(JSON_RPC_Object_var object) override {
    YAJL_String_Printer printer(sent);
    JSON_RPC_Writer writer;
    if (!writer.write(*object, printer)) return -1;
    sent += '\n';
    return 0;
  }

  std::string sent;
};

}  // namespace

namespace request_path {

void set_up() {
  JSON_RPC_Request_Map::instance()->insert("sum", "", new Sum_Handler, nullptr);
  JSON_RPC_Dispatcher::instance();
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
}

std::size_t floor(const std::string& request) {
  bare_yajl::parse(request, 0);

  const yajl_gen gen = yajl_gen_alloc(nullptr);
  yajl_gen_map_open(gen);
  bare_yajl::put(gen, "jsonrpc");
  bare_yajl::put(gen, "2.0");
  bare_yajl::put(gen, "id");
  yajl_gen_integer(gen, 12345);
  bare_yajl::put(gen, "result");
  yajl_gen_integer(gen, 4800);
  yajl_gen_map_close(gen);
  const unsigned char* text;
  size_t length;
  yajl_gen_get_buf(gen, &text, &length);
  yajl_gen_free(gen);
  return length;
}

std::size_t ours(const std::string& request) {
  static Buffer_Channel* const channel = new Buffer_Channel;
  static const JSON_RPC_Channel_var strong(channel);
  static const JSON_RPC_Channel_ptr weak(strong);
  static JSON_RPC_Reader reader;
  channel->sent.clear();
  if (!reader.open()) give_up("the reader does not open");
  if (!reader.read(request.data(), request.size())) give_up("the reader refuses the request");
  if (JSON_RPC_Dispatcher::instance()->dispatch(weak, *reader.message()) != 0) {
    give_up("not dispatched");
  }
  reader.close();
  return channel->sent.size();
}

}  // namespace request_path
