#include "http/http_date.h"

#include <cstdio>

namespace {

constexpr const char* day_names[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* month_names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// Reads a text from the front; after the first failure every operation fails.
class Scanner {
public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  bool literal(std::string_view text) {
    if (!good_ || rest_.substr(0, text.size()) != text) return good_ = false;
    rest_.remove_prefix(text.size());
    return true;
  }
  /// A number of exactly `digits` digits; `padded`: the first may be a blank.
  int number(std::size_t digits, bool padded = false) {
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      const char c = i < rest_.size() ? rest_[i] : '\0';
      const bool blank = padded && i == 0 && c == ' ';
      if (!blank && (c < '0' || c > '9')) good_ = false;
      if (!good_) return 0;
      value = value * 10 + (blank ? 0 : c - '0');
    }
    rest_.remove_prefix(digits);
    return value;
  }
  int month() {
    for (int i = 0; good_ && i < 12; ++i) {
      if (rest_.substr(0, 3) != month_names[i]) continue;
      rest_.remove_prefix(3);
      return i;
    }
    good_ = false;
    return 0;
  }
  void skip_past(char c) {
    const std::size_t end = rest_.find(c);
    if (end == std::string_view::npos) {
      good_ = false;
    } else {
      rest_.remove_prefix(end + 1);
    }
  }
  void time(std::tm& when) {
    when.tm_hour = number(2);
    literal(":");
    when.tm_min = number(2);
    literal(":");
    when.tm_sec = number(2);
  }
  bool at_end() const { return good_ && rest_.empty(); }

private:
  std::string_view rest_;
  bool good_ = true;
};

int full_year(int two_digits, std::time_t now) {
  std::tm today = {};
  ::gmtime_r(&now, &today);
  const int this_year = today.tm_year + 1900;
  const int year = this_year - this_year % 100 + two_digits;
  return year > this_year + 50 ? year - 100 : year;
}

/// "Sun, 06 Nov 1994 08:49:37 GMT"
bool read_fixed(std::string_view text, std::tm& when) {
  Scanner in(text);
  in.skip_past(',');
  in.literal(" ");
  when.tm_mday = in.number(2);
  in.literal(" ");
  when.tm_mon = in.month();
  in.literal(" ");
  when.tm_year = in.number(4) - 1900;
  in.literal(" ");
  in.time(when);
  in.literal(" GMT");
  return in.at_end();
}

/// "Sunday, 06-Nov-94 08:49:37 GMT"
bool read_rfc850(std::string_view text, std::time_t now, std::tm& when) {
  Scanner in(text);
  in.skip_past(',');
  in.literal(" ");
  when.tm_mday = in.number(2);
  in.literal("-");
  when.tm_mon = in.month();
  in.literal("-");
  when.tm_year = full_year(in.number(2), now) - 1900;
  in.literal(" ");
  in.time(when);
  in.literal(" GMT");
  return in.at_end();
}

/// "Sun Nov  6 08:49:37 1994"
bool read_asctime(std::string_view text, std::tm& when) {
  Scanner in(text);
  in.skip_past(' ');
  when.tm_mon = in.month();
  in.literal(" ");
  when.tm_mday = in.number(2, true);
  in.literal(" ");
  in.time(when);
  in.literal(" ");
  when.tm_year = in.number(4) - 1900;
  return in.at_end();
}

bool is_a_date(const std::tm& asked) {
  if (asked.tm_hour > 23 || asked.tm_min > 59 || asked.tm_sec > 60) return false;
  std::tm day = {};
  day.tm_year = asked.tm_year;
  day.tm_mon = asked.tm_mon;
  day.tm_mday = asked.tm_mday;
  ::timegm(&day);  // makes March of February's 30th
  return day.tm_mon == asked.tm_mon && day.tm_mday == asked.tm_mday;
}

}  // namespace

std::string http::http_date(std::time_t when) {
  std::tm utc = {};
  ::gmtime_r(&when, &utc);
  char text[64];
  std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", day_names[utc.tm_wday],
                utc.tm_mday, month_names[utc.tm_mon], utc.tm_year + 1900, utc.tm_hour, utc.tm_min,
                utc.tm_sec);
  return text;
}

std::optional<std::time_t> http::parse_http_date(std::string_view text, std::time_t now) {
  std::tm when = {};
  if (!read_fixed(text, when) && !read_rfc850(text, now, when) && !read_asctime(text, when)) {
    return std::nullopt;
  }
  if (!is_a_date(when)) return std::nullopt;
  return ::timegm(&when);
}
