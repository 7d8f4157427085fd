#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "vexa/http_url_encode.h"

/// Writes pairs as a query or a form's body (application/x-www-form-urlencoded):
/// key=value&key=value. What is encoded is encoded with ENCODE_FLAGS, so hex digits are in lower
/// case. Iterator is an output iterator of characters.
///
///   std::string body;
///   HTTP_Query_String_Builder_T builder(std::back_inserter(body), false);
///   builder("name", "a b").offset(20).limit(10);
template <typename Iterator>
class HTTP_Query_String_Builder_T {
public:
  typedef HTTP_Query_String_Builder_T this_type;
  static constexpr unsigned long ENCODE_FLAGS = HUT_FLAG_SLASH | HUT_FLAG_SPACE;

  /// `sep`: whether a pair stands before the first one already.
  HTTP_Query_String_Builder_T(Iterator iter, bool sep) : iter_(iter), sep_(sep) {}

  /// One pair; none when `key` is null or "". A null `val` gives the bare key. `key_prefix`, unless
  /// it is null, stands before the key, encoded as that.
  this_type& operator()(const char* key, const char* val, bool encode_key = true,
                        bool encode_val = true, const char* key_prefix = nullptr) {
    if (key == nullptr || *key == '\0') return *this;
    if (sep_) *iter_++ = '&';
    sep_ = true;
    write(key_prefix, encode_key);
    write(key, encode_key);
    if (val == nullptr) return *this;
    *iter_++ = '=';
    write(val, encode_val);
    return *this;
  }

  this_type& operator()(const char* key, std::uint64_t val) {
    return (*this)(key, std::to_string(val).c_str(), true, false);
  }

  /// All pairs, in the order of the keys.
  this_type& operator()(const std::map<std::string, std::string>& pairs) {
    for (const auto& pair : pairs) (*this)(pair.first.c_str(), pair.second.c_str());
    return *this;
  }

  // For queries that page: "offset", "limit", "sort", and "desc" as true or false.
  this_type& offset(std::uint64_t val) { return (*this)("offset", val); }
  this_type& limit(std::uint64_t val) { return (*this)("limit", val); }
  this_type& sort(const char* field) { return (*this)("sort", field); }
  this_type& desc(bool val) { return (*this)("desc", val ? "true" : "false"); }

private:
  void write(const char* text, bool encode) {
    if (text == nullptr) return;
    if (encode) return vexa::http_encode(text, ENCODE_FLAGS, iter_);
    for (const char c : std::string_view(text)) *iter_++ = c;
  }

  Iterator iter_;
  bool sep_;  // something stands before the next pair
};
