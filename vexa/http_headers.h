#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vexa/vexa_export.h"

/// The header fields that have a number. Others go by name.
enum HTTP_Head : int {
  HTTP_HEAD_ACCEPT = 0,
  HTTP_HEAD_ACCEPT_CHARSET,
  HTTP_HEAD_ACCEPT_ENCODING,
  HTTP_HEAD_ACCEPT_LANGUAGE,
  HTTP_HEAD_ACCEPT_RANGES,
  HTTP_HEAD_AGE,
  HTTP_HEAD_AUTHORIZATION,
  HTTP_HEAD_CACHE_CONTROL,
  HTTP_HEAD_CONNECTION = 8,
  HTTP_HEAD_CONTENT_DISPOSITION,
  HTTP_HEAD_CONTENT_ENCODING,
  HTTP_HEAD_CONTENT_LANGUAGE,
  HTTP_HEAD_CONTENT_LENGTH = 12,
  HTTP_HEAD_CONTENT_LOCATION,
  HTTP_HEAD_CONTENT_MD5,
  HTTP_HEAD_CONTENT_RANGE,
  HTTP_HEAD_CONTENT_TYPE = 16,
  HTTP_HEAD_COOKIE,
  HTTP_HEAD_DATE,
  HTTP_HEAD_ETAG,
  HTTP_HEAD_EXPECT,
  HTTP_HEAD_EXPIRES,
  HTTP_HEAD_FROM,
  HTTP_HEAD_HOST,
  HTTP_HEAD_IF_MATCH,
  HTTP_HEAD_IF_MODIFIED_SINCE,
  HTTP_HEAD_IF_NONE_MATCH,
  HTTP_HEAD_IF_RANGE,
  HTTP_HEAD_IF_UNMODIFIED_SINCE,
  HTTP_HEAD_LAST_MODIFIED,
  HTTP_HEAD_LOCATION,
  HTTP_HEAD_MAX_FORWARDS,
  HTTP_HEAD_PRAGMA,
  HTTP_HEAD_PROXY_AUTHENTICATE,
  HTTP_HEAD_PROXY_AUTHORIZATION,
  HTTP_HEAD_RANGE,
  HTTP_HEAD_REFERER,
  HTTP_HEAD_RETRY_AFTER,
  HTTP_HEAD_SERVER,
  HTTP_HEAD_SET_COOKIE,
  HTTP_HEAD_TRANSFER_ENCODING = 40,
  HTTP_HEAD_UPGRADE,
  HTTP_HEAD_USER_AGENT,
  HTTP_HEAD_VARY,
  HTTP_HEAD_VIA,
  HTTP_HEAD_WARNING,
  HTTP_HEAD_WWW_AUTHENTICATE,
  HTTP_HEAD_ALLOW,
  HTTP_HEAD_KEEP_ALIVE,
  HTTP_HEAD_TE,
  HTTP_HEAD_TRAILER,
  HTTP_HEAD_COUNT
};

/// The name of a numbered field, such as "Content-Length"; null when there is no such number.
VEXA_EXPORT const char* http_head_name(int id);

/// The number of a field, whatever the case of its name (RFC 9110 section 5.1); -1 when it has
/// none.
VEXA_EXPORT int http_head_id(std::string_view name);

/// The header fields of one message, in the order in which they were put. Names are compared
/// without regard to case. One thread at a time.
///
/// Nothing gets in that would end the line it is written on: a name that is no token (RFC 9110
/// section 5.6.2) and a value with CR, LF or NUL are refused with an error line, and refused()
/// stays true until clear(), so that a session does not send the request without the field.
class VEXA_EXPORT HTTP_Headers {
public:
  struct Field {
    int id;            ///< its number, or -1
    std::string name;  ///< empty when it has a number
    std::string value;
    std::string_view title() const { return id < 0 ? std::string_view(name) : http_head_name(id); }
  };
  typedef std::vector<Field>::const_iterator const_iterator;

  /// Puts a field, in place of all of its name with `replace`, otherwise behind those that are
  /// there. False, and nothing changed but refused(), when name or value is refused or null
  /// (EINVAL), or memory runs out (ENOMEM).
  bool put(int id, const char* value, bool replace = true);
  bool put(const char* name, const char* value, bool replace = true);
  bool put(int id, const std::string& value, bool replace = true);
  bool put(const std::string& name, const std::string& value, bool replace = true);

  /// The first value of that name, null when there is none; valid until the set changes.
  const char* get(int id) const;
  const char* get(const char* name) const;

  /// Whether there was such a field. All of them go.
  bool remove(int id);
  bool remove(const char* name);

  void clear();
  bool empty() const { return fields_.empty(); }
  bool refused() const { return refused_; }

  const_iterator begin() const { return fields_.begin(); }
  const_iterator end() const { return fields_.end(); }

  /// Appends a field that a parser has checked, and whose id it may know. Throws std::bad_alloc.
  void append(std::string_view name, std::string_view value);
  void append(int id, std::string_view name, std::string_view value);

private:
  bool insert(int id, std::string_view name, std::string_view value, bool replace);
  bool refuse(const char* reason);

  std::vector<Field> fields_;
  bool refused_ = false;
};

/// Whether the first item of a header value, up to `separator`, is `item`: blanks around it and
/// case do not matter. `http_header_value_match(type, "application/json", ';')` looks past the
/// parameters of a media type. False for a null value.
VEXA_EXPORT bool http_header_value_match(const char* value, const char* item, char separator);

/// Whether any item of a list of items is `item`, in the same sense. False for a null value.
VEXA_EXPORT bool http_header_value_contains(const char* value, const char* item, char separator);
