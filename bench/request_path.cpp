#include "bench/request_path.h"

#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "json_rpc/json_rpc_channel.h"
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
class Buffer_Channel final : public JSON_RPC_Channel {
public:
  int send(JSON_RPC_Object_var object) override {
    YAJL_String_Printer printer(sent);
    JSON_RPC_Writer writer;
    if (!writer.write(*object, printer)) return -1;
    sent += '\n';
    return 0;
  }
  int send(JSON_Generator&) override { return -1; }
  yajl_gen_t* send_begin() override { return nullptr; }
  int send_end() override { return -1; }
  int get_local_addr(ACE_Addr&) override { return -1; }
  int get_remote_addr(ACE_Addr&) override { return -1; }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CONNECTED; }
  HTTP_SOCK_State response_state() override { return HTTP_SOCK_STATE_CONNECTED; }

  std::string sent;
};

int ignore(void*) { return 1; }
int ignore_boolean(void*, int) { return 1; }
int ignore_number(void*, const char*, size_t) { return 1; }
int ignore_text(void*, const unsigned char*, size_t) { return 1; }
const yajl_callbacks nothing = {ignore,        ignore_boolean, nullptr, nullptr,
                                ignore_number, ignore_text,    ignore,  ignore_text,
                                ignore,        ignore,         ignore};

void string(yajl_gen gen, const char* text) {
  yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(text), std::strlen(text));
}

[[noreturn]] void give_up(const char* what) {
  std::fprintf(stderr, "the benchmark is broken: %s\n", what);
  std::abort();
}

}  // namespace

namespace request_path {

std::string small_request() {
  return R"({"jsonrpc":"2.0","method":"sum","params":[1,22,333,4444],"id":12345})";
}

std::string middle_request() {
  std::string request = R"({"jsonrpc":"2.0","method":"sum","params":{)";
  for (int i = 0; i < 20; ++i) {
    char member[96];
    std::snprintf(member, sizeof member, "%s\"member_%02d\":\"a text of some thirty characters\"",
                  i == 0 ? "" : ",", i);
    request += member;
  }
  return request + R"(},"id":12345})";
}

std::string large_request(unsigned int objects) {
  std::string request = R"({"jsonrpc":"2.0","method":"sum","params":[)";
  for (unsigned int i = 0; i < objects; ++i) {
    char object[160];
    std::snprintf(object, sizeof object,
                  "%s{\"id\":%u,\"name\":\"item %u\",\"price\":%u.25,\"active\":%s,"
                  "\"group\":\"tools\",\"stock\":%u,\"place\":[%u,%u]}",
                  i == 0 ? "" : ",", 100'000 + i, i, i % 1000, i % 2 == 0 ? "true" : "false",
                  i % 77, i % 13, i % 11);
    request += object;
  }
  return request + R"(],"id":12345})";
}

void set_up() {
  JSON_RPC_Request_Map::instance()->insert("sum", "", new Sum_Handler, nullptr);
  JSON_RPC_Dispatcher::instance();
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
}

std::size_t floor(const std::string& request) {
  const yajl_handle parser = yajl_alloc(&nothing, nullptr, nullptr);
  if (yajl_parse(parser, reinterpret_cast<const unsigned char*>(request.data()), request.size()) !=
      yajl_status_ok) {
    give_up("the floor cannot parse the request");
  }
  yajl_free(parser);

  const yajl_gen gen = yajl_gen_alloc(nullptr);
  yajl_gen_map_open(gen);
  string(gen, "jsonrpc");
  string(gen, "2.0");
  string(gen, "id");
  yajl_gen_integer(gen, 12345);
  string(gen, "result");
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
