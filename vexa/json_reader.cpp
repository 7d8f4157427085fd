#include "vexa/json_reader.h"

#include <cerrno>
#include <new>
#include <utility>

#include "vexa/yajl_error.h"

JSON_Reader::JSON_Reader() {
  if (!handle_.open(get_yajl_default_callbacks(), static_cast<YAJL_Handler*>(&parser_))) {
    error_ = "no memory";
    no_memory_ = true;
  }
  parser_.result(&value_);
}

JSON_Reader::~JSON_Reader() = default;

bool JSON_Reader::feed(const char* data, std::size_t length) {
  if (!is_open()) return false;
  errno = 0;
  const yajl_status status = handle_.feed(data, length);
  if (status == yajl_status_ok) return true;
  no_memory_ = errno == ENOMEM;
  abandon();
  try {
    error_ = no_memory_ ? "no memory"
             : status == yajl_status_client_canceled
                 ? "a value is too deep, or a number too large"
                 : YAJL_Error(handle_, false, nullptr, 0).c_str();
  } catch (const std::bad_alloc&) {
    error_ = "no memory";
  }
  while (!error_.empty() && error_.back() == '\n') error_.pop_back();
  handle_.close();
  return false;
}

bool JSON_Reader::read(const char* data, std::size_t length) {
  return length == 0 ? is_open() : feed(data, length);
}

bool JSON_Reader::end() { return feed(nullptr, 0); }

bool json_read(const char* text, std::size_t length, json_spirit::Value& value) {
  JSON_Reader reader;
  if (!reader.read(text, length) || !reader.end()) return false;
  value = std::move(reader.value());
  return true;
}
