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
  if (target != nullptr) {
    if (target->type() == json_spirit::obj_type || target->type() == json_spirit::array_type) {
      open_.push_back(target);
    } else {
      slot_ = target;
    }
  }
  look_inside();
}

void JSON_Parser::look_inside() {
  object_ = nullptr;
  array_ = nullptr;
  if (open_.empty()) return;
  if (open_.back()->type() == json_spirit::obj_type) {
    object_ = &open_.back()->get_obj();
  } else {
    array_ = &open_.back()->get_array();
  }
}

/// The place of the value that begins now; null when none is expected.
inline Value* JSON_Parser::next() {
  if (array_ == nullptr) return std::exchange(slot_, nullptr);
  if (array_->capacity() == 0) array_->reserve(first_room);
  return &array_->emplace_back();
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
  return read_number(text, length, *value);
}

// Flat, as the key below: the calls on the way to a short text cost more than its copy.
[[gnu::flatten]] bool JSON_Parser::handle_string_i(const char* text, std::size_t length) {
  Value* const value = next();
  if (value == nullptr) return false;
  *value = std::string_view(text, length);
  return true;
}

template <typename Container>
bool JSON_Parser::open() {
  if (open_.size() == vexa::max_value_depth) return false;
  Value* const value = next();
  if (value == nullptr) return false;
  *value = Container();
  open_.push_back(value);
  look_inside();
  return true;
}

bool JSON_Parser::close() {
  open_.pop_back();
  look_inside();
  return true;
}

void JSON_Parser::abandon() {
  // The innermost first: settling an object may move what is inside of it.
  for (; !open_.empty(); open_.pop_back()) {
    if (open_.back()->type() == json_spirit::obj_type) open_.back()->get_obj().settle();
  }
  look_inside();
}

bool JSON_Parser::handle_start_map_i() { return open<Object>(); }

[[gnu::flatten]] bool JSON_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (object_ == nullptr) return false;
  slot_ = &object_->append(std::string_view(text, length));
  return true;
}

bool JSON_Parser::handle_end_map_i() {
  if (object_ == nullptr) return false;
  object_->settle();
  return close();
}

bool JSON_Parser::handle_start_array_i() { return open<Array>(); }

bool JSON_Parser::handle_end_array_i() {
  if (array_ == nullptr) return false;
  // Of very many arrays of one element the unused room would outweigh the text by far.
  if (open_.size() > 1 && array_->size() == 1) array_->shrink_to_fit();
  return close();
}
