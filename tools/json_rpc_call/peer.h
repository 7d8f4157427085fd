#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "transport/framing.h"
#include "transport/limits.h"
#include "transport/server.h"

/// One connection to the process that is called, opened on a loop thread of its own.
class Peer {
public:
  struct Options {
    std::string url;
    transport::Framing framing = transport::Framing::LINES;
    std::chrono::seconds timeout{60};  ///< to connect, and for bytes that stand still
    bool finishes = false;             ///< finish() will be called
  };

  /// Nothing is connected yet.
  explicit Peer(const Options& options);

  /// Told once when an open connection is lost, with the reason, on the loop thread. Set before
  /// open().
  void on_lost(std::function<void(const std::string& reason)> lost) { lost_ = std::move(lost); }

  /// Closes what is open, and connects. False with a reason in `error`.
  bool open(std::string& error);

  /// Of open(), for as long as this lives or until the next open().
  const JSON_RPC_Channel_var& channel() const { return channel_; }

  /// Whether the connection is lost, and why.
  bool lost(std::string& reason);

  /// Waits until all that was sent has left, then until the peer closes too, for two or three
  /// seconds at most. False with a reason in `error` when it does not take it. Nothing can be sent
  /// afterwards.
  bool finish(std::string& error);

private:
  enum State { CONNECTING, UP, DOWN };

  void changed(bool up, const std::string& reason);

  const Options options_;
  transport::Limits limits_;
  std::function<void(const std::string&)> lost_;
  std::mutex mutex_;
  std::condition_variable turned_;  // with mutex_
  State state_ = CONNECTING;        // guarded by mutex_, like the next
  std::string reason_;              // why it is DOWN
  std::unique_ptr<transport::Server> server_;
  JSON_RPC_Channel_var channel_;
};
