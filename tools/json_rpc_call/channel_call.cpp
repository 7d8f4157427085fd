// The main thread connects, writes the params into the channel while it reads them, and sleeps
// until the loop thread has read the answer.
#include "tools/json_rpc_call/channel_call.h"

#include <cerrno>
#include <optional>

#include "json_rpc/json_rpc_session.h"
#include "tools/json_rpc_call/answer.h"
#include "tools/json_rpc_call/attempts.h"
#include "tools/json_rpc_call/channel_failure.h"
#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/generators.h"
#include "tools/json_rpc_call/outgoing_call.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/peer.h"
#include "tools/json_rpc_call/progress.h"
#include "tools/json_rpc_call/stray_error.h"

namespace {

/// A call, or a notification, over the peer's channel; one attempt after the other.
class Channel_Call {
public:
  Channel_Call(const Options& options, Peer& peer)
      : options_(options), peer_(peer), outgoing_(options) {}

  bool open(std::string& error) { return outgoing_.open(error); }

  Outcome call() {
    JSON_RPC_Object_var answer;
    const std::optional<Outcome> failure = ask(answer);
    return failure ? *failure : print_answer(answer.get(), options_.style);
  }

  Outcome notify() {
    std::string reason;
    if (!connect(reason)) return Outcome::failed(reason);
    const Progress progress([this](std::chrono::seconds elapsed) { return stage(elapsed); });
    Notification notification(outgoing_.method(), outgoing_.params());
    if (peer_.channel()->send(notification) != 0) return failure(errno);
    if (peer_.finish(reason)) return Outcome::done(EXIT_ANSWERED);
    return Outcome::failed("the notification has not left: " + reason);
  }

private:
  /// Gets the answer, or what became of the attempt instead.
  std::optional<Outcome> ask(JSON_RPC_Object_var& answer) {
    const Stray_Error stray;
    std::string reason;
    if (!connect(reason)) return Outcome::failed(reason);
    const Progress progress([this](std::chrono::seconds elapsed) { return stage(elapsed); });
    const bool answered = request(answer);
    const int error = errno;
    if (answered && !closed_under_call(peer_, answer.get(), reason)) return std::nullopt;
    if (stray.get().get() != nullptr) {
      answer = stray.get();
      return std::nullopt;
    }
    // Params that broke off close the connection, and may be told as its loss.
    const bool lost = answered && outgoing_.source().error().empty();
    return lost ? Outcome::failed(reason) : failure(error);
  }

  bool connect(std::string& reason) {
    if (!peer_.open(reason)) {
      reason = "cannot connect to " + options_.url + ": " + reason;
      return false;
    }
    outgoing_.source().stop_when([channel = peer_.channel()] {
      return channel->response_state() == HTTP_SOCK_STATE_CLOSED;
    });
    return true;
  }

  bool request(JSON_RPC_Object_var& answer) {
    JSON_RPC_Session session;
    session.reset(peer_.channel());
    const std::string& method = outgoing_.method();
    JSON_Generator* const params = outgoing_.params();
    const time_t timeout = options_.timeout.count();
    // The session counts from the second that has begun, so one more is as long as was asked for.
    if (params != nullptr) return session.request(method.c_str(), params, answer, timeout + 1);
    // Without params the member is left out, as not every peer takes a null.
    const JSON_RPC_Object_var bare = JSON_RPC_Session::make_rpc_request(method, nullptr);
    return bare.get() != nullptr && session.request(bare, answer, timeout);
  }

  Outcome failure(int error) {
    const std::string& bad_params = outgoing_.source().error();
    if (!bad_params.empty()) return Outcome::hopeless(bad_params);
    return Outcome::failed(reason_of_failure(peer_, error, options_.timeout));
  }

  std::string stage(std::chrono::seconds elapsed) const {
    const std::string seconds = ", " + std::to_string(elapsed.count()) + " s";
    const std::string sending = outgoing_.progress();
    return (sending.empty() ? "waiting for the answer" : sending) + seconds;
  }

  const Options& options_;
  Peer& peer_;
  Outgoing_Call outgoing_;
};

}  // namespace

int call_over_channel(const Options& options, Peer& peer) {
  Channel_Call call(options, peer);
  std::string error;
  if (!call.open(error)) return complain(error);
  return attempt(options.retries, options.retry_seconds, [&] { return call.call(); });
}

int notify_over_channel(const Options& options, Peer& peer) {
  Channel_Call call(options, peer);
  std::string error;
  if (!call.open(error)) return complain(error);
  return attempt(options.retries, options.retry_seconds, [&] { return call.notify(); });
}
