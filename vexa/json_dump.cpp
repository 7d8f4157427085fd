#include "vexa/json_dump.h"

#include "vexa/yajl_gen.h"
#include "vexa/yajl_printer.h"

JSON_Dump::JSON_Dump(const json_spirit::Value& value, bool pretty) {
  YAJL_Gen gen(yajl_gen_alloc(nullptr));
  if (gen.get() == nullptr) return;
  YAJL_String_Printer printer(text_);
  yajl_gen_config(gen.get(), yajl_gen_print_callback, &YAJL_Printer::print_s,
                  static_cast<void*>(&printer));
  if (pretty) yajl_gen_config(gen.get(), yajl_gen_beautify, 1);
  if (!gen.value(value)) text_.clear();
}
