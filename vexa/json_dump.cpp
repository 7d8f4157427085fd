#include "vexa/json_dump.h"

#include "vexa/json_writer.h"
#include "vexa/yajl_printer.h"

JSON_Dump::JSON_Dump(const json_spirit::Value& value, bool pretty) {
  YAJL_String_Printer printer(text_);
  if (!JSON_Writer::write(value, printer, pretty)) text_.clear();
}
