#include "tools/json_rpc_call/channel_failure.h"

#include <cerrno>
#include <cstring>

namespace {

// What a channel answers in the peer's place when it closes.
const char* const channel_closed = "Internal error, channel is closed.";

std::string lost_text(const std::string& why) { return "the connection is lost: " + why; }

std::string seconds_text(std::chrono::seconds time) { return std::to_string(time.count()) + " s"; }

}  // namespace

std::string reason_of_failure(Peer& peer, int error, std::chrono::seconds timeout) {
  std::string why;
  if (error == ETIME) return "no answer came within " + seconds_text(timeout);
  if (error == ENOTCONN && peer.lost(why)) return lost_text(why);
  if (error == ETIMEDOUT) return "the peer takes nothing for " + seconds_text(timeout);
  return std::string("the request cannot be sent: ") + std::strerror(error);
}

bool closed_under_call(Peer& peer, const JSON_RPC_Object* answer, std::string& reason) {
  if (answer == nullptr || answer->type != JSON_RPC_Object::TYPE_RESPONSE_ERROR) return false;
  const auto& error = static_cast<const JSON_RPC_Response_Error&>(*answer);
  std::string why;
  if (error.code != JSON_RPC_INTERNAL_ERROR || error.message != channel_closed) return false;
  if (!peer.lost(why)) return false;
  reason = lost_text(why);
  return true;
}
