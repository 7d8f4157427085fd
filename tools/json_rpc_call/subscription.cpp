// Notifications come on the loop thread, which prints them; the main thread sleeps meanwhile. One
// that a handler of its name waits for goes there; the others go to the process's default channel,
// and with them what this process announces of its own connection.
#include "tools/json_rpc_call/subscription.h"

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "json_rpc/global_json_rpc_channel.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_request_map.h"
#include "json_rpc/json_rpc_session.h"
#include "json_rpc/json_rpc_writer.h"
#include "tools/json_rpc_call/answer.h"
#include "tools/json_rpc_call/channel_failure.h"
#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/interruption.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/peer.h"
#include "tools/json_rpc_call/progress.h"
#include "vexa/yajl_printer.h"

namespace {

const char* const everything = "*";
const char* const own_prefix = "channel.";

/// Prints notifications, and says when and how it all ends. Any thread.
class Notification_Printer {
public:
  /// Ends by itself after `count`, unless that is 0.
  explicit Notification_Printer(std::size_t count) : count_(count) {}

  void print(const JSON_RPC_Object& object) {
    std::string text;
    YAJL_String_Printer printer(text);
    JSON_RPC_Writer writer;
    if (!writer.write(object, printer)) return end("a notification cannot be written");
    const std::lock_guard<std::mutex> guard(mutex_);
    if (ended_) return;
    if (!print_line(text)) return end_locked(std::string("cannot write: ") + std::strerror(errno));
    if (++printed_ == count_) end_locked(std::string());
  }

  /// Nothing is printed any more; `reason` tells what went wrong, "" when nothing did.
  void end(const std::string& reason) {
    const std::lock_guard<std::mutex> guard(mutex_);
    end_locked(reason);
  }

  /// Until the end; the exit status.
  int wait() {
    std::unique_lock<std::mutex> guard(mutex_);
    turned_.wait(guard, [this] { return ended_; });
    return reason_.empty() ? EXIT_ANSWERED : complain(reason_);
  }

private:
  /// Requires mutex_.
  void end_locked(const std::string& reason) {
    if (ended_) return;
    ended_ = true;
    reason_ = reason;
    turned_.notify_all();
  }

  const std::size_t count_;
  std::mutex mutex_;
  std::condition_variable turned_;  // with mutex_
  std::size_t printed_ = 0;         // guarded by mutex_, like the next two
  bool ended_ = false;
  std::string reason_;
};

/// Takes the notifications of one name.
class Subject_Handler final : public JSON_RPC_Handler {
public:
  explicit Subject_Handler(Notification_Printer& printer) : printer_(printer) {}

  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var object) override {
    if (object->type != JSON_RPC_Object::TYPE_NOTIFY) return -1;  // no method of ours
    printer_.print(*object);
    return 0;
  }

private:
  Notification_Printer& printer_;
};

/// Takes the notifications for which there is no handler, as the process's default channel.
class Printing_Channel final : public JSON_RPC_Channel {
public:
  explicit Printing_Channel(Notification_Printer& printer) : printer_(printer) {}

  int send(JSON_RPC_Object_var object) override {
    // The peer's of these names have handlers: what comes here is announced by this process.
    const std::string& name = static_cast<const JSON_RPC_Request&>(*object).method;
    if (name.rfind(own_prefix, 0) != 0) printer_.print(*object);
    return 0;
  }
  int send(JSON_Generator&) override { return fail(); }
  yajl_gen_t* send_begin() override {
    fail();
    return nullptr;
  }
  int send_end() override { return fail(); }
  int get_local_addr(ACE_Addr&) override { return fail(); }
  int get_remote_addr(ACE_Addr&) override { return fail(); }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CONNECTED; }
  HTTP_SOCK_State response_state() override { return HTTP_SOCK_STATE_CONNECTED; }

private:
  static int fail() {
    errno = ENOTSUP;
    return -1;
  }

  Notification_Printer& printer_;
};

/// Has the registries hand what comes under these names to the printer; the default channel, for
/// whoever must keep it.
JSON_RPC_Channel_var install(std::set<std::string> names, Notification_Printer& printer) {
  JSON_RPC_Channel_var channel;
  if (names.erase(everything) != 0) {
    channel = JSON_RPC_Channel_var(new Printing_Channel(printer));
    Global_JSON_RPC_Channel::instance(channel);
    // The transport lets these in only where there is a handler.
    names.insert({"channel.registered", "channel.unregistered"});
  }
  for (const std::string& name : names) {
    JSON_RPC_Request_Map::instance()->insert(name, "", new Subject_Handler(printer), nullptr);
  }
  return channel;
}

/// Has the peer subscribe us. True when it has; else what its answer, or its silence, comes to.
bool ask(const Options& options, Peer& peer, Outcome& outcome) {
  const Progress progress([](std::chrono::seconds elapsed) {
    return "subscribing, " + std::to_string(elapsed.count()) + " s";
  });
  json_spirit::Array subjects(options.subjects.begin(), options.subjects.end());
  json_spirit::Object params;
  params["subjects"] = std::move(subjects);
  JSON_RPC_Session session;
  session.reset(peer.channel());
  const JSON_RPC_Object_var request =
      JSON_RPC_Session::make_rpc_request("subscribe", std::move(params));
  JSON_RPC_Object_var answer;
  std::string reason;
  if (request.get() == nullptr || !session.request(request, answer, options.timeout.count())) {
    outcome = Outcome::failed(reason_of_failure(peer, errno, options.timeout));
  } else if (closed_under_call(peer, answer.get(), reason)) {
    outcome = Outcome::failed(reason);
  } else if (answer.get() == nullptr || answer->type != JSON_RPC_Object::TYPE_RESPONSE) {
    outcome = print_answer(answer.get(), options.style);
  } else {
    return true;
  }
  return false;
}

}  // namespace

int subscribe(const Options& options, Peer& peer) {
  leave_when_interrupted(EXIT_ANSWERED);
  // Static, since the loop thread uses them until the process ends.
  static Notification_Printer printer(options.count);
  static const JSON_RPC_Channel_var default_channel =
      install({options.subjects.begin(), options.subjects.end()}, printer);
  peer.on_lost([](const std::string& reason) { printer.end("the connection is lost: " + reason); });
  std::string error;
  if (!peer.open(error)) return complain("cannot connect to " + options.url + ": " + error);
  Outcome outcome;
  if (ask(options, peer, outcome)) return printer.wait();
  return outcome.reason.empty() ? outcome.status : complain(outcome.reason);
}
