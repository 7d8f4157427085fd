#include "bench/writer_path.h"

#include "bench/bare_yajl.h"
#include "bench/give_up.h"
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

void records(yajl_gen gen, unsigned int count) {
  yajl_gen_array_open(gen);
  for (unsigned int i = 0; i < count; ++i) {
    yajl_gen_map_open(gen);
    bare_yajl::put(gen, "id");
    yajl_gen_integer(gen, 100'000 + i);
    bare_yajl::put(gen, "name");
    bare_yajl::put(gen, "one of many items");
    bare_yajl::put(gen, "active");
    yajl_gen_bool(gen, i % 2 == 0);
    bare_yajl::put(gen, "group");
    bare_yajl::put(gen, "tools");
    yajl_gen_map_close(gen);
  }
  yajl_gen_array_close(gen);
}

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
  const yajl_gen gen = bare_yajl::generator_to(sink);
  yajl_gen_map_open(gen);
  bare_yajl::put(gen, "jsonrpc");
  bare_yajl::put(gen, "2.0");
  bare_yajl::put(gen, "method");
  bare_yajl::put(gen, "sum");
  bare_yajl::put(gen, "id");
  bare_yajl::put(gen, JSON_RPC_Id_Generator::get());
  bare_yajl::put(gen, "params");
  records(gen, count);
  yajl_gen_map_close(gen);
  yajl_gen_free(gen);
  return sink.size();
}

}  // namespace writer_path
