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

#include "tests/support/json_rpc_fixture.h"

namespace {

typedef std::chrono::steady_clock Clock;
typedef std::chrono::duration<double, std::milli> Milliseconds;

constexpr int receivers = 8;
constexpr std::chrono::milliseconds longest_allowed(5000);  // also where cores are scarce

/// Writes each message as text, as a socket's channel does, and forgets it.
class Forgetful_Channel final : public Fake_Channel {
  int send(JSON_RPC_Object_var object) override {
    std::string text;
    YAJL_String_Printer printer(text);
    return JSON_RPC_Writer().write(*object, printer) ? 0 : -1;
  }
};

JSON_RPC_Channel_var make_channel(const std::string& id) {
  const JSON_RPC_Channel_var channel(new Forgetful_Channel);
  channel->type(1);
  channel->id(id);
  return channel;
}

/// Something that channels are put into and taken out of, and what reads it meanwhile.
struct Table {
  const char* name;
  std::function<int(const JSON_RPC_Channel_var&)> add;
  std::function<int(const JSON_RPC_Channel_var&)> remove;
  std::function<int()> publish;
};

/// Whether no change failed or waited too long beside so many publishers.
bool measure(const Table& table, int publishers, std::chrono::seconds time) {
  std::atomic<long> published{0};
  std::atomic<bool> stop{false};
  // They end also by themselves: a change that never got its turn gets it then, and its wait tells.
  const Clock::time_point last = Clock::now() + time + 3 * longest_allowed;
  std::vector<std::thread> threads;
  for (int i = 0; i < publishers; ++i) {
    threads.emplace_back([&] {
      while (!stop && Clock::now() < last) published += table.publish() == 0;
    });
  }
  while (publishers > 0 && published < 1000) std::this_thread::yield();
  const JSON_RPC_Channel_var changing = make_channel("changing");
  Milliseconds longest{0};
  long count = 0, failed = 0;
  const Clock::time_point begin = Clock::now();
  for (Clock::time_point before = begin, now; before < begin + time; before = now, ++count) {
    failed += (count % 2 == 0 ? table.add : table.remove)(changing) != 0;
    now = Clock::now();
    longest = std::max<Milliseconds>(longest, now - before);
  }
  const Milliseconds all = Clock::now() - begin;
  stop = true;
  for (std::thread& thread : threads) thread.join();
  if (count % 2 == 1) table.remove(changing);
  std::printf(
      "%s, %d publishing: %ld changes, %ld failed, mean %.4f ms, longest %.3f ms, %ld published\n",
      table.name, publishers, count, failed, all.count() / count, longest.count(),
      published.load());
  std::fflush(stdout);
  return failed == 0 && longest <= longest_allowed;
}

}  // namespace

int main(int argc, char** argv) {
  const std::chrono::seconds time(std::max(1, argc > 1 ? std::atoi(argv[1]) : 2));
  const int publishers = std::max(1, argc > 2 ? std::atoi(argv[2]) : 2);
  const Log_Priorities quiet(LM_ERROR);
  JSON_RPC_Notify_Manager& manager = *JSON_RPC_Notify_Manager::instance();
  JSON_RPC_Channel_Map& map = *JSON_RPC_Channel_Map::instance();
  const Table tables[] = {
      {"subscription", [&](const auto& channel) { return manager.subscribe(channel, {"news"}); },
       [&](const auto& channel) { return manager.unsubscribe(channel); },
       [&] { return manager.notify("news", make_notification("news")); }},
      {"registration", [&](const auto& channel) { return map.insert(channel); },
       [&](const auto& channel) { return map.remove(channel); },
       [&] { return map.notify(make_notification("news")); }}};
  bool content = true;
  for (const Table& table : tables) {
    std::vector<JSON_RPC_Channel_var> channels;
    for (int i = 0; i < receivers; ++i) {
      channels.push_back(make_channel(std::to_string(i)));
      table.add(channels.back());
    }
    for (const int threads : {0, publishers}) content = measure(table, threads, time) && content;
  }
  JSON_RPC_Notify_Manager::close_instance();
  JSON_RPC_Channel_Map::close_instance();
  return content ? 0 : 1;
}
