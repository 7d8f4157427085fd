// change_wait SECONDS [PUBLISHERS]: how long a change of the subscriptions, and of the registered
// channels, waits while nobody publishes and while so many threads, or two, publish without pause.
// The lock lets readers pass a writer that waits, so nothing but luck bounds that. Prints a line of
// figures for each case; status 1 when a change waited longer than it may.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_rpc_channel_map.h"
#include "json_rpc/json_rpc_notify_manager.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/support/log_capture.h"

namespace {

typedef std::chrono::steady_clock Clock;
typedef std::chrono::duration<double, std::milli> Milliseconds;

constexpr int receivers = 8;
constexpr std::chrono::milliseconds longest_allowed(5000);  // also where cores are scarce

/// Writes each message as text, as a socket's channel does, and forgets it.
class Forgetful_Channel final : public JSON_RPC_Channel {
public:
  int send(JSON_RPC_Object_var object) override {
    std::string text;
    YAJL_String_Printer printer(text);
    return JSON_RPC_Writer().write(*object, printer) ? 0 : -1;
  }
  int send(JSON_Generator&) override { return -1; }
  yajl_gen_t* send_begin() override { return nullptr; }
  int send_end() override { return -1; }
  int get_local_addr(ACE_Addr&) override { return -1; }
  int get_remote_addr(ACE_Addr&) override { return -1; }
  bool is_ssl() override { return false; }
  HTTP_SOCK_State request_state() override { return HTTP_SOCK_STATE_CONNECTED; }
  HTTP_SOCK_State response_state() override { return HTTP_SOCK_STATE_CONNECTED; }
};

JSON_RPC_Channel_var make_channel(const std::string& id) {
  const JSON_RPC_Channel_var channel(new Forgetful_Channel);
  channel->type(1);
  channel->id(id);
  return channel;
}

JSON_RPC_Object_var make_notification() {
  JSON_RPC_Request* const notification = new JSON_RPC_Request;
  notification->type = JSON_RPC_Object::TYPE_NOTIFY;
  notification->method = "news";
  notification->params = json_spirit::Array{1, "text", true};
  return JSON_RPC_Object_var(notification);
}

/// What the waits of one kind of change came to.
struct Waits {
  void time(const std::function<int()>& change) {
    const Clock::time_point begin = Clock::now();
    failed += change() != 0;
    const Milliseconds wait = Clock::now() - begin;
    longest = std::max(longest, wait);
    total += wait;
    ++count;
  }

  Milliseconds longest{0};
  Milliseconds total{0};
  long count = 0;
  long failed = 0;
};

/// Publishers, and beside them one thread that changes what they read.
class Measurement {
public:
  Measurement(const char* name, std::function<int()> publish)
      : name_(name), publish_(std::move(publish)) {}

  /// Whether no change failed or waited too long.
  bool run(int threads, std::chrono::seconds time, const std::function<int()>& add,
           const std::function<int()>& remove) {
    std::vector<std::thread> running;
    std::atomic<long> published{0};
    std::atomic<bool> stop{false};
    // They end also by themselves: a change that never got its turn gets it then, and its wait
    // tells.
    const Clock::time_point last = Clock::now() + time + 3 * longest_allowed;
    for (int i = 0; i < threads; ++i) {
      running.emplace_back([&] {
        while (!stop && Clock::now() < last) published += publish_() == 0;
      });
    }
    while (threads > 0 && published < 1000) std::this_thread::yield();
    Waits waits;
    for (const Clock::time_point end = Clock::now() + time; Clock::now() < end;) {
      waits.time(add);
      waits.time(remove);
    }
    stop = true;
    for (std::thread& thread : running) thread.join();
    std::printf(
        "%s, %d publishing: %ld changes, %ld failed, mean %.4f ms, longest %.3f ms, "
        "%ld published\n",
        name_, threads, waits.count, waits.failed, waits.total.count() / waits.count,
        waits.longest.count(), published.load());
    std::fflush(stdout);
    return waits.failed == 0 && waits.longest <= longest_allowed;
  }

private:
  const char* const name_;
  const std::function<int()> publish_;
};

bool measure_subscriptions(std::chrono::seconds time, int publishers) {
  JSON_RPC_Notify_Manager& manager = *JSON_RPC_Notify_Manager::instance();
  std::vector<JSON_RPC_Channel_var> channels;
  for (int i = 0; i < receivers; ++i) {
    channels.push_back(make_channel(std::to_string(i)));
    manager.subscribe(channels.back(), {"news"});
  }
  const JSON_RPC_Channel_var changing = make_channel("changing");
  Measurement measurement("subscription",
                          [&] { return manager.notify("news", make_notification()); });
  const auto add = [&] { return manager.subscribe(changing, {"news"}); };
  const auto remove = [&] { return manager.unsubscribe(changing); };
  const bool idle = measurement.run(0, time, add, remove);
  return measurement.run(publishers, time, add, remove) && idle;
}

bool measure_registrations(std::chrono::seconds time, int publishers) {
  JSON_RPC_Channel_Map& map = *JSON_RPC_Channel_Map::instance();
  std::vector<JSON_RPC_Channel_var> channels;
  for (int i = 0; i < receivers; ++i) {
    channels.push_back(make_channel(std::to_string(i)));
    map.insert(channels.back());
  }
  const JSON_RPC_Channel_var changing = make_channel("changing");
  Measurement measurement("registration", [&] { return map.notify(make_notification()); });
  const auto add = [&] { return map.insert(changing); };
  const auto remove = [&] { return map.remove(changing); };
  const bool idle = measurement.run(0, time, add, remove);
  return measurement.run(publishers, time, add, remove) && idle;
}

}  // namespace

int main(int argc, char** argv) {
  const std::chrono::seconds time(std::max(1, argc > 1 ? std::atoi(argv[1]) : 2));
  const int publishers = std::max(1, argc > 2 ? std::atoi(argv[2]) : 2);
  const Log_Priorities quiet(LM_ERROR);
  const bool subscriptions = measure_subscriptions(time, publishers);
  const bool registrations = measure_registrations(time, publishers);
  JSON_RPC_Notify_Manager::close_instance();
  JSON_RPC_Channel_Map::close_instance();
  return subscriptions && registrations ? 0 : 1;
}
