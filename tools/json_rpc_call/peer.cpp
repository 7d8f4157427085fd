#include "tools/json_rpc_call/peer.h"

#include <thread>

#include "tools/json_rpc_call/progress.h"
#include "transport/link_options.h"

namespace {

constexpr std::chrono::milliseconds look_again{2};

transport::Limits limits_of(const Peer::Options& options) {
  transport::Limits limits;
  limits.max_message = 0;
  limits.stall_timeout = options.timeout;
  return limits;
}

}  // namespace

Peer::Peer(const Options& options) : options_(options), limits_(limits_of(options)) {}

bool Peer::open(std::string& error) {
  const Progress progress([](std::chrono::seconds elapsed) {
    return "connecting, " + std::to_string(elapsed.count()) + " s";
  });
  channel_ = JSON_RPC_Channel_var();
  server_.reset();
  state_ = CONNECTING;  // no loop runs
  server_ = std::make_unique<transport::Server>(limits_, 1);
  transport::Link_Options link;
  link.framing = options_.framing;
  link.reconnect = false;
  link.abrupt = !options_.finishes;
  link.changed = [this](bool up, const std::string& reason) { changed(up, reason); };
  JSON_RPC_Channel_ptr channel;
  if (server_->connect(options_.url, link, channel, error) != 0) return false;
  channel_ = channel;
  server_->start();

  std::unique_lock<std::mutex> guard(mutex_);
  turned_.wait(guard, [this] { return state_ != CONNECTING; });  // the link keeps the time
  if (state_ == UP) return true;
  error = reason_;
  return false;
}

void Peer::changed(bool up, const std::string& reason) {
  bool was_up;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    was_up = state_ == UP;
    state_ = up ? UP : DOWN;
    reason_ = reason;
  }
  turned_.notify_all();
  if (was_up && !up && lost_) lost_(reason);
}

bool Peer::lost(std::string& reason) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (state_ != DOWN) return false;
  reason = reason_;
  return true;
}

bool Peer::finish(std::string& error) {
  while (server_->unsent() > 0) std::this_thread::sleep_for(look_again);  // the link keeps the time
  const bool left = !lost(error);
  server_->stop(std::chrono::seconds(0));
  return left;
}
