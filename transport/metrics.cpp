#include "transport/metrics.h"

#include <algorithm>

#include "json_rpc/json_rpc_object.h"
#include "json_rpc/json_rpc_request_map.h"

namespace transport {

namespace {

constexpr int highest_server_code = -32000;
constexpr int lowest_server_code = -32099;

// In the order of their indices, from 1 on.
constexpr std::array<int, 5> standard_codes = {JSON_RPC_PARSE_ERROR, JSON_RPC_INVALID_REQUEST,
                                               JSON_RPC_METHOD_NOT_FOUND, JSON_RPC_INVALID_PARAMS,
                                               JSON_RPC_INTERNAL_ERROR};
constexpr std::size_t first_server_code = 1 + standard_codes.size();
static_assert(first_server_code + highest_server_code - lowest_server_code + 1 ==
              Metrics::OTHER_CODE);

/// `first` and then those of `names` that are not the same.
std::vector<std::string> behind(const char* first, const std::vector<std::string>& names) {
  std::vector<std::string> all = {first};
  std::copy_if(names.begin(), names.end(), std::back_inserter(all),
               [=](const std::string& name) { return name != first; });
  return all;
}

}  // namespace

constexpr std::chrono::microseconds us(std::int64_t count) {
  return std::chrono::microseconds(count);
}
const std::array<std::chrono::microseconds, Metrics::BOUNDS> Metrics::bounds = {
    us(100),       us(250),       us(500),       us(1'000),     us(2'500),   us(5'000),
    us(10'000),    us(25'000),    us(50'000),    us(100'000),   us(250'000), us(500'000),
    us(1'000'000), us(2'500'000), us(5'000'000), us(10'000'000)};

std::size_t Metrics::code_index(int code) noexcept {
  if (code == 0) return RESULT;
  if (code <= highest_server_code && code >= lowest_server_code) {
    return first_server_code + (highest_server_code - code);
  }
  const auto it = std::find(standard_codes.begin(), standard_codes.end(), code);
  return it == standard_codes.end() ? OTHER_CODE : 1 + (it - standard_codes.begin());
}

int Metrics::code_of(std::size_t index) noexcept {
  if (index == RESULT || index >= OTHER_CODE) return 0;
  if (index < first_server_code) return standard_codes[index - 1];
  return highest_server_code - static_cast<int>(index - first_server_code);
}

std::vector<std::string> Metrics::registered_methods() {
  std::vector<std::string> names;
  JSON_RPC_Request_Map::instance()->for_each_name(
      [&](const std::string& name) { names.push_back(name); });
  return names;
}

Metrics::Metrics(const std::vector<std::string>& methods, const std::vector<std::string>& listeners)
    : methods_(behind("other", methods)),
      listeners_(listeners),
      first_method_(first_listener + (listeners.size() + 1) * LISTENER_COUNTERS),
      rows_(first_method_ + methods_.size() * METHOD_COUNTERS) {
  listeners_.push_back("links");
  for (std::size_t i = 0; i < methods_.size(); ++i) indices_.emplace(methods_[i], i);
}

std::size_t Metrics::method(std::string_view name) const noexcept {
  const auto it = indices_.find(name);
  return it == indices_.end() ? 0 : it->second;
}

void Metrics::answered(std::size_t method, int code, std::chrono::nanoseconds duration) noexcept {
  const std::size_t interval =
      std::lower_bound(bounds.begin(), bounds.end(), duration) - bounds.begin();
  const std::size_t index = code_index(code);
  const std::size_t at = at_method(method);
  Counter_Rows::Counter* const row = rows_.row();
  Counter_Rows::add(row[COUNTERS + index], 1);
  Counter_Rows::add(row[at + INTERVALS + interval], 1);
  Counter_Rows::add(row[at + NANOSECONDS], std::max<std::int64_t>(0, duration.count()));
  if (index != RESULT) Counter_Rows::add(row[at + ERRORS], 1);
}

}  // namespace transport
