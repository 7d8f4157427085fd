#include "vexa/json_writer.h"

#include <memory>

#include "vexa/yajl_gen.h"

namespace {

struct Free_Generator {
  void operator()(yajl_gen_t* gen) const { yajl_gen_free(gen); }
};
typedef std::unique_ptr<yajl_gen_t, Free_Generator> Generator;

/// Null when there is no memory.
Generator new_generator(YAJL_Printer& printer, bool pretty) {
  Generator gen(yajl_gen_alloc(nullptr));
  if (gen != nullptr) {
    yajl_gen_config(gen.get(), yajl_gen_beautify, pretty ? 1 : 0);
    yajl_gen_config(gen.get(), yajl_gen_print_callback, &YAJL_Printer::print_s,
                    static_cast<void*>(&printer));
  }
  return gen;
}

}  // namespace

bool JSON_Writer::write(const json_spirit::Value& value, YAJL_Printer& printer, bool pretty) {
  const Generator gen = new_generator(printer, pretty);
  return gen != nullptr && YAJL_Gen(gen.get(), false).value(value);
}

bool JSON_Writer::write(JSON_Generator& generator, YAJL_Printer& printer, bool pretty) {
  const Generator gen = new_generator(printer, pretty);
  return gen != nullptr && generator.generate(gen.get());
}
