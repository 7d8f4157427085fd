#pragma once

#include <ctime>
#include <list>
#include <string>
#include <string_view>

#include "vexa/vexa_export.h"

namespace vexa {

/// The cookies of one host (RFC 6265), for as long as the process lives. At most max_cookies; the
/// oldest goes for one more. No lock. Operations throw std::bad_alloc.
class VEXA_EXPORT HTTP_Cookies {
public:
  static constexpr std::size_t max_cookies = 64;
  static constexpr std::size_t max_size = 4096;  // bytes of a Set-Cookie value; longer is ignored

  /// Files what a Set-Cookie of `host` says in answer to a request for `path`, at `now` (section
  /// 5.3). A cookie for a domain that `host` does not belong to is ignored. One that has expired
  /// deletes its namesake.
  void set(std::string_view text, std::string_view host, std::string_view path, std::time_t now);

  /// The value of Cookie for a request for `path`, "" when there is none to send; `secure` says
  /// that it goes over TLS (section 5.4).
  std::string get(std::string_view path, bool secure, std::time_t now);

  bool empty() const { return cookies_.empty(); }
  void clear() { cookies_.clear(); }

private:
  struct Cookie {
    std::string name;
    std::string value;
    std::string path;
    std::time_t expires;  // 0: with the process
    bool secure;
  };
  std::list<Cookie> cookies_;  // the oldest first
};

/// The time that a cookie's Expires names (section 5.1.1); -1 when it names none.
VEXA_EXPORT std::time_t http_cookie_date(std::string_view text);

}  // namespace vexa
