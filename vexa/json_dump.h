#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "vexa/vexa_export.h"

/// A value as JSON text, for log lines and small texts: `JSON_Dump(id, false).c_str()`. With
/// `pretty` indented over several lines. A value that cannot be written (too deep, not finite)
/// gives "".
class VEXA_EXPORT JSON_Dump {
public:
  explicit JSON_Dump(const json_spirit::Value& value, bool pretty = false);
  const char* c_str() const { return text_.c_str(); }
  const std::string& str() const { return text_; }

private:
  std::string text_;
};
