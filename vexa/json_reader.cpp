#include "vexa/json_reader.h"

#include <utility>

#include "vexa/yajl_error.h"

JSON_Reader::JSON_Reader()
    : handle_(
          yajl_alloc(get_yajl_default_callbacks(), nullptr, static_cast<YAJL_Handler*>(&parser_))) {
  if (handle_ == nullptr) error_ = "no memory";
  parser_.result(&value_);
}

JSON_Reader::~JSON_Reader() = default;

bool JSON_Reader::check(yajl_status status) {
  if (status == yajl_status_ok) return true;
  abandon();
  error_ = status == yajl_status_client_canceled
               ? "a value is too deep, or a number too large"
               : YAJL_Error(handle_.get(), false, nullptr, 0).c_str();
  while (!error_.empty() && error_.back() == '\n') error_.pop_back();
  return false;
}

bool JSON_Reader::read(const char* data, std::size_t length) {
  if (handle_ == nullptr) return false;
  return check(yajl_parse(handle_.get(), reinterpret_cast<const unsigned char*>(data), length));
}

bool JSON_Reader::end() { return handle_ != nullptr && check(yajl_complete_parse(handle_.get())); }

bool json_read(const char* text, std::size_t length, json_spirit::Value& value) {
  JSON_Reader reader;
  if (!reader.read(text, length) || !reader.end()) return false;
  value = std::move(reader.value());
  return true;
}
