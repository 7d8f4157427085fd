#pragma once

#include "json_spirit/json_spirit_value.h"
#include "vexa/json_generator.h"
#include "vexa/vexa_export.h"
#include "vexa/yajl_printer.h"

/// Writes one JSON text straight into a printer.
class VEXA_EXPORT JSON_Writer {
public:
  /// `pretty` breaks lines and indents, otherwise the text is compact. False when there is no
  /// memory for a generator (nothing is written), when the value is deeper than
  /// vexa::max_value_depth or holds a real that is not finite, or as the generator gives: the text
  /// so far is then the caller's to abandon.
  static bool write(const json_spirit::Value& value, YAJL_Printer& printer, bool pretty);
  static bool write(JSON_Generator& generator, YAJL_Printer& printer, bool pretty);
};
