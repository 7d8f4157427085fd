#include "vexa/http_cookies.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "vexa/http_text.h"

namespace vexa {

namespace {

const std::time_t never = std::numeric_limits<std::time_t>::max();

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// Takes `least` to `most` digits off the front of `text`; -1, and nothing taken, when there are
/// fewer or more.
int take_number(std::string_view& text, std::size_t least, std::size_t most) {
  std::size_t count = 0;
  int number = 0;
  while (count < text.size() && is_digit(text[count])) {
    if (count == most) return -1;
    number = number * 10 + (text[count++] - '0');
  }
  if (count < least) return -1;
  text.remove_prefix(count);
  return number;
}

bool take_clock(std::string_view text, std::tm& when) {
  const int hour = take_number(text, 1, 2);
  if (hour < 0 || text.empty() || text.front() != ':') return false;
  text.remove_prefix(1);
  const int minute = take_number(text, 1, 2);
  if (minute < 0 || text.empty() || text.front() != ':') return false;
  text.remove_prefix(1);
  const int second = take_number(text, 1, 2);
  if (second < 0) return false;
  when.tm_hour = hour;
  when.tm_min = minute;
  when.tm_sec = second;
  return true;
}

int month_of(std::string_view text) {
  static constexpr std::string_view months[] = {"jan", "feb", "mar", "apr", "may", "jun",
                                                "jul", "aug", "sep", "oct", "nov", "dec"};
  for (int month = 0; month < 12; ++month) {
    if (ascii_iequal(text.substr(0, 3), months[month])) return month;
  }
  return -1;
}

bool is_date_delimiter(char c) {
  return c == '\t' || (c >= 0x20 && c <= 0x2F) || (c >= 0x3B && c <= 0x40) ||
         (c >= 0x5B && c <= 0x60) || (c >= 0x7B && c <= 0x7E);
}

/// Seconds since the epoch of a Max-Age; `now` or before for one that is not positive.
std::time_t max_age_end(std::string_view text, std::time_t now) {
  if (text.front() == '-') return 1;
  std::time_t seconds = 0;
  for (const char c : text) {
    if (seconds > std::numeric_limits<int>::max()) return never;
    seconds = seconds * 10 + (c - '0');
  }
  return seconds == 0 ? 1 : now + seconds;
}

bool is_max_age(std::string_view text) {
  if (text.empty() || (text.front() != '-' && !is_digit(text.front()))) return false;
  return std::all_of(text.begin() + 1, text.end(), is_digit);
}

bool is_numeric_host(std::string_view host) {
  return host.find(':') != std::string_view::npos || (!host.empty() && is_digit(host.back()));
}

bool domain_matches(std::string_view host, std::string_view domain) {
  if (ascii_iequal(host, domain)) return true;
  if (is_numeric_host(host) || host.size() <= domain.size()) return false;
  const std::size_t prefix = host.size() - domain.size();
  // A domain without a dot is a top-level one, which no host may set cookies for.
  return host[prefix - 1] == '.' && domain.find('.') != std::string_view::npos &&
         ascii_iequal(host.substr(prefix), domain);
}

std::string_view default_path(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos || slash == 0 ? "/" : path.substr(0, slash);
}

bool path_matches(std::string_view path, std::string_view cookie) {
  if (path.substr(0, cookie.size()) != cookie) return false;
  return path.size() == cookie.size() || cookie.back() == '/' || path[cookie.size()] == '/';
}

}  // namespace

std::time_t http_cookie_date(std::string_view text) {
  std::tm when{};
  int day = -1, month = -1, year = -1;
  bool clock = false;
  while (!text.empty()) {
    const auto end = std::find_if(text.begin(), text.end(), is_date_delimiter);
    const std::string_view token = text.substr(0, end - text.begin());
    text.remove_prefix(std::min(token.size() + 1, text.size()));
    std::string_view number = token;
    if (token.empty() || (!clock && (clock = take_clock(token, when)))) continue;
    if (day < 0 && (day = take_number(number, 1, 2)) >= 0) continue;
    if (month < 0 && (month = month_of(token)) >= 0) continue;
    if (year < 0) year = take_number(number, 2, 4);
  }
  if (year >= 70 && year <= 99) year += 1900;
  if (year >= 0 && year <= 69) year += 2000;
  if (!clock || day < 1 || day > 31 || month < 0 || year < 1601) return -1;
  if (when.tm_hour > 23 || when.tm_min > 59 || when.tm_sec > 59) return -1;
  when.tm_mday = day;
  when.tm_mon = month;
  when.tm_year = year - 1900;
  return ::timegm(&when);
}

void HTTP_Cookies::set(std::string_view text, std::string_view host, std::string_view path,
                       std::time_t now) {
  if (text.size() > max_size) return;
  std::string_view pair = take_item(text, ';');
  if (pair.find('=') == std::string_view::npos) return;
  const std::string_view name = trim(take_item(pair, '='));
  if (name.empty()) return;
  Cookie cookie{std::string(name), std::string(trim(pair)), std::string(default_path(path)), 0,
                false};
  bool has_max_age = false;
  std::string_view domain;  // the last one counts
  while (!text.empty()) {
    std::string_view value = take_item(text, ';');
    const std::string_view attribute = trim(take_item(value, '='));
    value = trim(value);
    if (ascii_iequal(attribute, "Expires") && !has_max_age) {
      const std::time_t date = http_cookie_date(value);
      if (date != -1) cookie.expires = std::max<std::time_t>(date, 1);
    } else if (ascii_iequal(attribute, "Max-Age") && is_max_age(value)) {
      cookie.expires = max_age_end(value, now);
      has_max_age = true;
    } else if (ascii_iequal(attribute, "Domain") && !value.empty()) {
      if (value.front() == '.') value.remove_prefix(1);
      domain = value;
    } else if (ascii_iequal(attribute, "Path")) {
      cookie.path = !value.empty() && value.front() == '/' ? value : default_path(path);
    } else if (ascii_iequal(attribute, "Secure")) {
      cookie.secure = true;
    }
  }

  if (!domain.empty() && !domain_matches(host, domain)) return;

  const auto old = std::find_if(cookies_.begin(), cookies_.end(), [&](const Cookie& other) {
    return other.name == cookie.name && other.path == cookie.path;
  });
  const bool expired = cookie.expires != 0 && cookie.expires <= now;
  if (old != cookies_.end()) {
    // One that is replaced keeps its age, which orders what is sent.
    if (expired) {
      cookies_.erase(old);
    } else {
      *old = std::move(cookie);
    }
  } else if (!expired) {
    cookies_.push_back(std::move(cookie));
    if (cookies_.size() > max_cookies) cookies_.pop_front();
  }
}

std::string HTTP_Cookies::get(std::string_view path, bool secure, std::time_t now) {
  cookies_.remove_if([now](const Cookie& c) { return c.expires != 0 && c.expires <= now; });
  std::vector<const Cookie*> matching;
  for (const Cookie& cookie : cookies_) {
    if (path_matches(path, cookie.path) && (secure || !cookie.secure)) matching.push_back(&cookie);
  }
  std::stable_sort(matching.begin(), matching.end(), [](const Cookie* a, const Cookie* b) {
    return a->path.size() > b->path.size();
  });
  std::string text;
  for (const Cookie* cookie : matching) {
    if (!text.empty()) text += "; ";
    text.append(cookie->name).append(1, '=').append(cookie->value);
  }
  return text;
}

}  // namespace vexa
