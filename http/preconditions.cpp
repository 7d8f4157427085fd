#include "http/preconditions.h"

#include <optional>
#include <string_view>

#include "http/http_date.h"
#include "vexa/http_text.h"

namespace {

using http::Validators;

enum class Compare { strong, weak };

/// Whether the entity tag that `list` begins with is ours. Takes it off; false also for what is no
/// tag, and then nothing is left.
bool take_and_match(std::string_view& list, const Validators& ours, Compare how) {
  const bool weak = list.substr(0, 2) == "W/";
  std::string_view rest = list.substr(weak ? 2 : 0);
  const std::size_t end =
      rest.empty() || rest[0] != '"' ? std::string_view::npos : rest.find('"', 1);
  if (end == std::string_view::npos) {
    list = {};
    return false;
  }
  const std::string_view tag = rest.substr(0, end + 1);
  list = rest.substr(end + 1);
  if (how == Compare::strong && (weak || ours.weak)) return false;
  return tag == ours.tag;
}

/// Whether one of the tags in the list is ours; "*" is any.
bool list_matches(std::string_view list, const Validators& ours, Compare how) {
  if (vexa::trim(list) == "*") return true;
  for (;;) {
    const std::size_t begin = list.find_first_not_of(" \t,");  // tags may hold commas themselves
    if (begin == std::string_view::npos) return false;
    list.remove_prefix(begin);
    if (take_and_match(list, ours, how)) return true;
  }
}

/// A list may come in several fields.
bool field_matches(const CGI_Request& request, int id, const Validators& ours, Compare how) {
  for (const HTTP_Headers::Field& field : request.headers()) {
    if (field.id == id && list_matches(field.value, ours, how)) return true;
  }
  return false;
}

std::optional<std::time_t> date_of(const CGI_Request& request, int id, std::time_t now) {
  const char* const text = request.headers().get(id);
  if (text == nullptr) return std::nullopt;
  return http::parse_http_date(vexa::trim(text), now);
}

}  // namespace

int http::check_preconditions(const CGI_Request& request, const Validators& validators,
                              std::time_t now) {
  constexpr int not_modified = 304;
  constexpr int failed = 412;
  const HTTP_Headers& headers = request.headers();
  if (headers.get(HTTP_HEAD_IF_MATCH) != nullptr) {
    if (!field_matches(request, HTTP_HEAD_IF_MATCH, validators, Compare::strong)) return failed;
  } else if (const auto limit = date_of(request, HTTP_HEAD_IF_UNMODIFIED_SINCE, now)) {
    if (validators.modified > *limit) return failed;
  }
  if (headers.get(HTTP_HEAD_IF_NONE_MATCH) != nullptr) {
    if (field_matches(request, HTTP_HEAD_IF_NONE_MATCH, validators, Compare::weak)) {
      return not_modified;
    }
  } else if (const auto known = date_of(request, HTTP_HEAD_IF_MODIFIED_SINCE, now)) {
    if (validators.modified <= *known) return not_modified;
  }
  return 0;
}

bool http::if_range_holds(const CGI_Request& request, const Validators& validators,
                          std::time_t now) {
  const char* const text = request.headers().get(HTTP_HEAD_IF_RANGE);
  if (text == nullptr) return true;
  std::string_view condition = vexa::trim(text);
  if (condition.find('"') != std::string_view::npos) {
    return take_and_match(condition, validators, Compare::strong) && condition.empty();
  }
  return !validators.weak && parse_http_date(condition, now) == validators.modified;
}
