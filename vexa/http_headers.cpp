#include "vexa/http_headers.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <new>

#include "vexa/http_text.h"
#include "vexa/log.h"

namespace {

constexpr std::string_view names[] = {
    "Accept",
    "Accept-Charset",
    "Accept-Encoding",
    "Accept-Language",
    "Accept-Ranges",
    "Age",
    "Authorization",
    "Cache-Control",
    "Connection",
    "Content-Disposition",
    "Content-Encoding",
    "Content-Language",
    "Content-Length",
    "Content-Location",
    "Content-MD5",
    "Content-Range",
    "Content-Type",
    "Cookie",
    "Date",
    "ETag",
    "Expect",
    "Expires",
    "From",
    "Host",
    "If-Match",
    "If-Modified-Since",
    "If-None-Match",
    "If-Range",
    "If-Unmodified-Since",
    "Last-Modified",
    "Location",
    "Max-Forwards",
    "Pragma",
    "Proxy-Authenticate",
    "Proxy-Authorization",
    "Range",
    "Referer",
    "Retry-After",
    "Server",
    "Set-Cookie",
    "Transfer-Encoding",
    "Upgrade",
    "User-Agent",
    "Vary",
    "Via",
    "Warning",
    "WWW-Authenticate",
    "Allow",
    "Keep-Alive",
    "TE",
    "Trailer",
};
static_assert(std::size(names) == HTTP_HEAD_COUNT, "a name for every number");

constexpr std::size_t longest_name = 19;  // Proxy-Authorization

/// The numbers whose names have the same length, chained; -1 ends a chain. A server looks each
/// field of a head up.
struct By_Length {
  int first[longest_name + 1] = {};
  int next[HTTP_HEAD_COUNT] = {};

  constexpr By_Length() {
    for (int& id : first) id = -1;
    for (int id = HTTP_HEAD_COUNT - 1; id >= 0; --id) {
      next[id] = first[names[id].size()];  // a longer name than the longest does not compile
      first[names[id].size()] = id;
    }
  }
};
constexpr By_Length by_length;

bool is_token(std::string_view text) {
  const auto is_tchar = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos);
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), is_tchar);
}

bool ends_a_line(std::string_view value) {
  return value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

bool has_name(const HTTP_Headers::Field& field, int id, std::string_view name) {
  return id >= 0 ? field.id == id : field.id < 0 && vexa::ascii_iequal(field.name, name);
}

}  // namespace

const char* http_head_name(int id) {
  return id >= 0 && id < HTTP_HEAD_COUNT ? names[id].data() : nullptr;
}

int http_head_id(std::string_view name) {
  if (name.size() > longest_name) return -1;
  for (int id = by_length.first[name.size()]; id >= 0; id = by_length.next[id]) {
    if (vexa::ascii_iequal(names[id], name)) return id;
  }
  return -1;
}

bool HTTP_Headers::put(int id, const char* value, bool replace) {
  const char* const name = http_head_name(id);
  if (name == nullptr || value == nullptr) return refuse("no name or no value");
  return insert(id, name, value, replace);
}

bool HTTP_Headers::put(const char* name, const char* value, bool replace) {
  if (name == nullptr || value == nullptr) return refuse("no name or no value");
  return insert(http_head_id(name), name, value, replace);
}

bool HTTP_Headers::put(int id, const std::string& value, bool replace) {
  const char* const name = http_head_name(id);
  if (name == nullptr) return refuse("no name or no value");
  return insert(id, name, value, replace);
}

bool HTTP_Headers::put(const std::string& name, const std::string& value, bool replace) {
  return insert(http_head_id(name), name, value, replace);
}

bool HTTP_Headers::insert(int id, std::string_view name, std::string_view value, bool replace) {
  if (id < 0 && !is_token(name)) return refuse("its name is no token");
  if (ends_a_line(value)) return refuse("its value has CR, LF or NUL");
  const auto same = [&](const Field& field) { return has_name(field, id, name); };
  const std::string_view text = vexa::trim(value);
  try {
    const auto old = replace ? std::find_if(fields_.begin(), fields_.end(), same) : fields_.end();
    if (old == fields_.end()) {
      append(name, text);
      return true;
    }
    old->value.assign(text);
    fields_.erase(std::remove_if(old + 1, fields_.end(), same), fields_.end());
    return true;
  } catch (const std::bad_alloc&) {
    refused_ = true;
    errno = ENOMEM;
    return false;
  }
}

bool HTTP_Headers::refuse(const char* reason) {
  refused_ = true;
  errno = EINVAL;
  VEXA_ERROR("HTTP header field refused, %C\n", reason);
  return false;
}

void HTTP_Headers::append(std::string_view name, std::string_view value) {
  append(http_head_id(name), name, value);
}

void HTTP_Headers::append(int id, std::string_view name, std::string_view value) {
  if (fields_.capacity() == 0) fields_.reserve(12);  // as many as most heads have
  fields_.push_back(Field{id, std::string(id < 0 ? name : std::string_view()), std::string(value)});
}

const char* HTTP_Headers::get(int id) const {
  for (const Field& field : fields_) {
    if (id >= 0 && field.id == id) return field.value.c_str();
  }
  return nullptr;
}

const char* HTTP_Headers::get(const char* name) const {
  if (name == nullptr) return nullptr;
  const int id = http_head_id(name);
  for (const Field& field : fields_) {
    if (has_name(field, id, name)) return field.value.c_str();
  }
  return nullptr;
}

bool HTTP_Headers::remove(int id) { return id >= 0 && remove(http_head_name(id)); }

bool HTTP_Headers::remove(const char* name) {
  if (name == nullptr) return false;
  const int id = http_head_id(name);
  const auto gone = std::remove_if(fields_.begin(), fields_.end(),
                                   [&](const Field& field) { return has_name(field, id, name); });
  const bool any = gone != fields_.end();
  fields_.erase(gone, fields_.end());
  return any;
}

void HTTP_Headers::clear() {
  fields_.clear();
  refused_ = false;
}

bool http_header_value_match(const char* value, const char* item, char separator) {
  if (value == nullptr || item == nullptr) return false;
  std::string_view rest(value);
  return vexa::ascii_iequal(vexa::trim(vexa::take_item(rest, separator)), item);
}

bool http_header_value_contains(const char* value, const char* item, char separator) {
  if (value == nullptr || item == nullptr) return false;
  for (std::string_view rest(value); !rest.empty();) {
    if (vexa::ascii_iequal(vexa::trim(vexa::take_item(rest, separator)), item)) return true;
  }
  return false;
}
