#include "bench/writer_path.h"

#include <yajl/yajl_gen.h>

#include <string_view>

#include "bench/messages.h"
#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_writer.h"
#include "vexa/yajl_gen.h"
#include "vexa/yajl_printer.h"

namespace {

std::string sink;

/// The array of records.
class Records final : public JSON_Generator {
public:
  explicit Records(unsigned int count) : count_(count) {}

  bool generate_i(YAJL_Gen& gen) override {
    gen.array_open();
    for (unsigned int i = 0; i < count_; ++i) {
      gen.map_open();
      gen << "id";
      gen.integer(100'000 + i);
      gen << "name"
          << "one of many items";
      gen << "active";
      gen.boolean(i % 2 == 0);
      gen << "group"
          << "tools";
      gen.map_close();
    }
    return gen.array_close();
  }

private:
  const unsigned int count_;
};

void string(yajl_gen gen, std::string_view text) {
  yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

void records(yajl_gen gen, unsigned int count) {
  yajl_gen_array_open(gen);
  for (unsigned int i = 0; i < count; ++i) {
    yajl_gen_map_open(gen);
    string(gen, "id");
    yajl_gen_integer(gen, 100'000 + i);
    string(gen, "name");
    string(gen, "one of many items");
    string(gen, "active");
    yajl_gen_bool(gen, i % 2 == 0);
    string(gen, "group");
    string(gen, "tools");
    yajl_gen_map_close(gen);
  }
  yajl_gen_array_close(gen);
}

void append(void*, const char* text, size_t length) { sink.append(text, length); }

}  // namespace

namespace writer_path {

JSON_RPC_Object_var message_of(const std::string& text) {
  JSON_RPC_Reader reader;
  if (!reader.open() || !reader.read(text.data(), text.size())) {
    give_up("the reader refuses the message");
  }
  return reader.object();
}

std::size_t ours(const JSON_RPC_Object& message) {
  sink.clear();
  YAJL_String_Printer printer(sink);
  JSON_RPC_Writer writer;
  if (!writer.write(message, printer)) give_up("the writer refuses the message");
  return sink.size();
}

std::size_t generated(unsigned int count) {
  sink.clear();
  YAJL_String_Printer printer(sink);
  Records params(count);
  JSON_RPC_Request_Generator request("sum", &params);
  JSON_RPC_Writer writer;
  if (!writer.write(request, printer)) give_up("the generator fails");
  return sink.size();
}

std::size_t generated_floor(unsigned int count) {
  sink.clear();
  const yajl_gen gen = yajl_gen_alloc(nullptr);
  yajl_gen_config(gen, yajl_gen_print_callback, append, static_cast<void*>(nullptr));
  yajl_gen_map_open(gen);
  string(gen, "jsonrpc");
  string(gen, "2.0");
  string(gen, "method");
  string(gen, "sum");
  string(gen, "id");
  string(gen, JSON_RPC_Id_Generator::get());
  string(gen, "params");
  records(gen, count);
  yajl_gen_map_close(gen);
  yajl_gen_free(gen);
  return sink.size();
}

}  // namespace writer_path
