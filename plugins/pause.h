#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

#include "plugins/plugin.h"

namespace plugin {

/// Sleeps as {"ms": n} asks, at most a day, and answers n; anything else is refused.
inline int pause_and_answer(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  constexpr std::int64_t longest = 24 * 3600 * 1000;
  const char* const expected = "{\"ms\": n} with n from 0 to 86400000 is expected";
  if (request.params.type() != json_spirit::obj_type) return refuse(channel, request, expected);
  const json_spirit::Object& params = request.params.get_obj();
  const auto ms = params.find("ms");
  if (ms == params.end() || ms->second.type() != json_spirit::int_type || ms->second.is_uint64() ||
      ms->second.get_int64() < 0 || ms->second.get_int64() > longest) {
    return refuse(channel, request, expected);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(ms->second.get_int64()));
  return answer(channel, request, ms->second);
}

}  // namespace plugin
