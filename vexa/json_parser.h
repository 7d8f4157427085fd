#pragma once

#include <string_view>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "vexa/vexa_export.h"
#include "vexa/yajl_handler.h"

/// Builds the events that it receives into one value. Of a key that comes twice the last value
/// stays.
class VEXA_EXPORT JSON_Parser : public YAJL_Handler {
public:
  /// Sets the value to build, borrowed and left alone until the next call, or with null removes it.
  /// A target that holds an object or array counts as just opened: its members come next; any other
  /// target is replaced by the next value.
  void result(json_spirit::Value* target);

  /// Every event gives false when no value is expected (no target, or it is complete), when the
  /// value is deeper than vexa::max_value_depth, or for a number that no double can hold.
  bool handle_null_i() override;
  bool handle_boolean_i(bool value) override;
  bool handle_number_i(const char* text, std::size_t length) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;

  /// The text will not go on: what has been built can be used, as far as it is.
  void abandon();

private:
  json_spirit::Value* next();
  void look_inside();
  template <typename Container>
  bool open();
  bool close();

  // The open containers, outermost first. Their addresses hold: only the innermost one grows.
  std::vector<json_spirit::Value*> open_;
  // What the innermost one holds, one of them null; both are when none is open.
  json_spirit::Object* object_ = nullptr;
  json_spirit::Array* array_ = nullptr;
  json_spirit::Value* slot_ = nullptr;  // where the next value goes, unless an array is innermost
};
