#include "vexa/json_parser.h"

#include <string_view>
#include <utility>

#include "vexa/json_limits.h"
#include "vexa/number_to_value.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr std::size_t first_room = 4;  // elements: most arrays that have any have few

}  // namespace

void JSON_Parser::result(Value* target) {
  open_.clear();
  slot_ = nullptr;
  if (target == nullptr) return;
  if (target->type() == json_spirit::obj_type || target->type() == json_spirit::array_type) {
    open_.push_back(target);
  } else {
    slot_ = target;
  }
}

/// The place of the value that begins now; null when none is expected.
Value* JSON_Parser::next() {
  if (!open_.empty() && open_.back()->type() == json_spirit::array_type) {
    Array& array = open_.back()->get_array();
    if (array.empty()) array.reserve(first_room);
    array.emplace_back();
    return &array.back();
  }
  return std::exchange(slot_, nullptr);
}

bool JSON_Parser::handle_null_i() {
  Value* const value = next();
  if (value == nullptr) return false;
  *value = Value();
  return true;
}

bool JSON_Parser::handle_boolean_i(bool flag) {
  Value* const value = next();
  if (value == nullptr) return false;
  *value = Value(flag);
  return true;
}

bool JSON_Parser::handle_number_i(const char* text, std::size_t length) {
  Value* const value = next();
  if (value == nullptr) return false;
  *value = number_to_value(text, length);
  return !value->is_null();
}

bool JSON_Parser::handle_string_i(const char* text, std::size_t length) {
  Value* const value = next();
  if (value == nullptr) return false;
  *value = Value(std::string_view(text, length));
  return true;
}

bool JSON_Parser::open(Value&& container) {
  if (open_.size() == vexa::max_value_depth) return false;
  Value* const value = next();
  if (value == nullptr) return false;
  *value = std::move(container);
  open_.push_back(value);
  return true;
}

bool JSON_Parser::close() {
  if (open_.empty()) return false;
  open_.pop_back();
  return true;
}

bool JSON_Parser::handle_start_map_i() { return open(Value(Object())); }

bool JSON_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (open_.empty() || open_.back()->type() != json_spirit::obj_type) return false;
  slot_ = &open_.back()->get_obj().append(std::string_view(text, length));
  return true;
}

bool JSON_Parser::handle_end_map_i() {
  if (open_.empty() || open_.back()->type() != json_spirit::obj_type) return false;
  open_.back()->get_obj().settle();
  return close();
}

bool JSON_Parser::handle_start_array_i() { return open(Value(Array())); }

bool JSON_Parser::handle_end_array_i() {
  if (open_.empty() || open_.back()->type() != json_spirit::array_type) return false;
  // Of very many arrays of one element the unused room would outweigh the text by far.
  if (open_.size() > 1 && open_.back()->get_array().size() == 1) {
    open_.back()->get_array().shrink_to_fit();
  }
  return close();
}
