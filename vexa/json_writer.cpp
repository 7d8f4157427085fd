#include "vexa/json_writer.h"

#include "vexa/yajl_gen.h"
#include "vexa/yajl_gen_handle.h"

namespace {

/// Null when there is no memory.
yajl_gen_t* open(YAJL_Gen_Handle& handle, YAJL_Printer& printer, bool pretty) {
  yajl_gen_t* const gen = handle.open(printer);
  if (gen != nullptr) yajl_gen_config(gen, yajl_gen_beautify, pretty ? 1 : 0);
  return gen;
}

}  // namespace

bool JSON_Writer::write(const json_spirit::Value& value, YAJL_Printer& printer, bool pretty) {
  YAJL_Gen_Handle handle;
  return YAJL_Gen(open(handle, printer, pretty), false).value(value);
}

bool JSON_Writer::write(JSON_Generator& generator, YAJL_Printer& printer, bool pretty) {
  YAJL_Gen_Handle handle;
  yajl_gen_t* const gen = open(handle, printer, pretty);
  return gen != nullptr && generator.generate(gen);
}
