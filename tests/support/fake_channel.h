#pragma once

#include <ace/INET_Addr.h>
#include <ace/Lock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/support/gate.h"
#include "vexa/json_generator.h"
#include "vexa/yajl_printer.h"

/// A channel without a peer: keeps the messages that are sent over it, as objects and as their JSON
/// text, in order. The public fields say how it behaves; set them before other threads use it.
class Fake_Channel : public JSON_RPC_Channel {
public:
  /// -1 makes both send() fail (with `error`) and keep nothing.
  int send_result = 0;
  int send_end_result = 0;  ///< the streamed text is kept all the same
  int error = EPIPE;
  bool refuse_stream = false;  ///< send_begin() gives null
  /// Called at the start of every send(object), before it is kept.
  std::function<void(const JSON_RPC_Object_var&)> on_send;

  /// -1 makes the operation fail with errno ENOTCONN.
  int remote_result = 0;
  int original_result = 0;
  ACE_INET_Addr remote_addr = ACE_INET_Addr(1000, "192.0.2.1", AF_INET);
  ACE_INET_Addr original_addr = ACE_INET_Addr(3000, "192.0.2.3", AF_INET);

  HTTP_SOCK_State response = HTTP_SOCK_STATE_CONNECTED;
  ACE_Lock* lock = nullptr;  ///< what io_mutex() gives; borrowed

  /// Set when the channel goes; borrowed.
  bool* destroyed = nullptr;

  ~Fake_Channel() override {
    if (destroyed != nullptr) *destroyed = true;
  }

  int send(JSON_RPC_Object_var obj) override {
    if (on_send) on_send(obj);
    if (send_result != 0) return fail(send_result);
    std::string text;
    YAJL_String_Printer printer(text);
    JSON_RPC_Writer writer;
    if (obj.get() != nullptr) writer.write(*obj, printer);
    keep(obj, std::move(text));
    return 0;
  }

  int send(JSON_Generator& gen) override {
    if (send_result != 0) return fail(send_result);
    std::string text;
    YAJL_String_Printer printer(text);
    JSON_RPC_Writer writer;
    if (!writer.write(gen, printer)) return fail(-1);
    keep(JSON_RPC_Object_var(), std::move(text));
    return 0;
  }

  yajl_gen_t* send_begin() override {
    if (refuse_stream) return nullptr;
    stream_.clear();
    return stream_writer_.open(stream_printer_);
  }

  int send_end() override {
    stream_writer_.close();
    keep(JSON_RPC_Object_var(), stream_);
    return send_end_result == 0 ? 0 : fail(send_end_result);
  }

  int get_local_addr(ACE_Addr& addr) override { return address(0, remote_addr, addr); }
  int get_remote_addr(ACE_Addr& addr) override { return address(remote_result, remote_addr, addr); }
  int get_original_addr(ACE_Addr& addr) const override {
    return address(original_result, original_addr, addr);
  }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CONNECTED; }
  HTTP_SOCK_State response_state() override { return response; }
  ACE_Lock* io_mutex() override { return lock; }

  /// The texts of all that was sent, streamed messages included.
  std::vector<std::string> texts() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return texts_;
  }

  /// The objects that were sent; empty handles stand for messages that were not sent as objects.
  std::vector<JSON_RPC_Object_var> objects() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return objects_;
  }

  std::size_t count() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return texts_.size();
  }

  /// Until `count` messages were sent in all. After gate_patience the test has failed: false.
  bool wait_for(std::size_t count) {
    std::unique_lock<std::mutex> guard(mutex_);
    if (sent_.wait_for(guard, gate_patience, [&] { return texts_.size() >= count; })) return true;
    ADD_FAILURE() << "only " << texts_.size() << " of " << count << " messages were sent";
    return false;
  }

  void forget() {
    const std::lock_guard<std::mutex> guard(mutex_);
    texts_.clear();
    objects_.clear();
  }

private:
  int fail(int result) const {
    errno = error;
    return result;
  }

  static int address(int result, const ACE_INET_Addr& from, ACE_Addr& to) {
    if (result != 0) {
      errno = ENOTCONN;
      return result;
    }
    dynamic_cast<ACE_INET_Addr&>(to).set(from);
    return 0;
  }

  void keep(const JSON_RPC_Object_var& object, std::string text) {
    const std::lock_guard<std::mutex> guard(mutex_);
    objects_.push_back(object);
    texts_.push_back(std::move(text));
    sent_.notify_all();
  }

  mutable std::mutex mutex_;
  std::condition_variable sent_;
  std::vector<JSON_RPC_Object_var> objects_;  // guarded by mutex_
  std::vector<std::string> texts_;            // guarded by mutex_
  std::string stream_;
  YAJL_String_Printer stream_printer_{stream_};
  JSON_RPC_Writer stream_writer_;
};

/// A fake channel of that type and id in the handle that owns it; fake(channel) gives its own face.
inline JSON_RPC_Channel_var make_fake_channel(int type = 0, const std::string& id = std::string()) {
  JSON_RPC_Channel_var channel(new Fake_Channel);
  channel->type(type);
  channel->id(id);
  return channel;
}

inline Fake_Channel& fake(const JSON_RPC_Channel_var& channel) {
  return static_cast<Fake_Channel&>(*channel);
}
