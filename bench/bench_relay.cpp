// A large answer relayed by a hub: the CPU time that the hub spends on it, beside what the same
// bytes cost to parse with empty callbacks and to generate again, both with yajl and in one thread.
// And the hub's memory meanwhile.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/bare_yajl.h"
#include "bench/give_up.h"
#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

/// Parses pieces of the size that a connection reads, and throws every event away.
void parse(const std::string& piece, unsigned int pieces) {
  bare_yajl::Parser parser;
  parser.feed("[0");
  for (unsigned int i = 0; i < pieces; ++i) parser.feed(piece);
  parser.feed("]");
}

/// Generates a text so often, and throws away what has come together every now and then.
void generate(const std::string& text, unsigned int texts) {
  std::string buffer;
  const yajl_gen gen = bare_yajl::generator_to(buffer);
  yajl_gen_array_open(gen);
  for (unsigned int i = 0; i < texts; ++i) {
    bare_yajl::put(gen, text);
    if (buffer.size() >= 65536) buffer.clear();
  }
  yajl_gen_array_close(gen);
  yajl_gen_free(gen);
}

double floor_of(unsigned long long bytes) {
  const std::string text(1024, 'x');
  std::string piece;
  while (piece.size() < 65536) piece += ",\"" + text + '"';
  const unsigned int texts = bytes / text.size();
  const double before = cpu_seconds(0);
  parse(piece, bytes / piece.size());
  generate(text, texts);
  return cpu_seconds(0) - before;
}

/// Has the agent's blob relayed, and reads it, at most so many bytes a second where that is not 0.
/// The most memory that the hub had in the meantime.
std::size_t relay(const Host_Under_Test& hub, unsigned long long bytes,
                  unsigned long long bytes_a_second) {
  const int socket = hub.connect();
  send_all(
      socket,
      R"({"jsonrpc":"2.0","id":1,"method":"agent.call","params":{"agent":"a1","method":"blob",)"
      R"("params":{"bytes":)" +
          std::to_string(bytes) + "}}}\n");
  std::vector<char> buffer(1u << 18);
  std::size_t most = 0;
  unsigned long long got = 0;
  const auto begin = std::chrono::steady_clock::now();
  for (std::string_view part; !(part = receive(socket, buffer)).empty();) {
    const bool sample = got >> 24 != (got + part.size()) >> 24;
    got += part.size();
    if (sample) most = std::max(most, hub.resident_bytes());
    if (part.back() == '\n') break;
    if (bytes_a_second != 0) {
      std::this_thread::sleep_until(begin +
                                    std::chrono::microseconds(got * 1000000 / bytes_a_second));
    }
  }
  ::close(socket);
  if (got < bytes) give_up("the answer is not complete");
  return most;
}

/// The registration takes a moment.
void wait_for_agent(const Host_Under_Test& hub) {
  const int socket = hub.connect();
  for (;;) {
    send_all(
        socket,
        R"({"jsonrpc":"2.0","id":1,"method":"agent.call","params":{"agent":"a1","method":"sum",)"
        R"("params":[1]}})"
        "\n");
    if (read_line(socket).find("result") != std::string::npos) break;
    ::usleep(10000);
  }
  ::close(socket);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned long long bytes = (argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1024) << 20;
  const Host_Under_Test hub({"--max-message", "0", "--threads", "1"});
  const Host_Under_Test agent(
      {"--connect", "tcp://127.0.0.1:" + std::to_string(hub.port()), "--agent-id", "a1"});
  wait_for_agent(hub);
  relay(hub, 16u << 20, 0);
  const std::size_t idle = hub.resident_bytes();

  std::size_t most = 0;
  double seconds = 0;  // that a relay takes
  const auto relay_whole = [&] {
    const double before = cpu_seconds(hub.pid());
    const auto begin = std::chrono::steady_clock::now();
    most = std::max(most, relay(hub, bytes, 0));
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    return cpu_seconds(hub.pid()) - before;
  };
  Side_By_Side("relayed; CPU seconds", Side_By_Side::LESS)
      .measure(
          {{std::to_string(bytes >> 20) + " MB", {[&] { return floor_of(bytes); }, relay_whole}}},
          3);
  const std::size_t slow =
      relay(hub, bytes / 8, static_cast<unsigned long long>(bytes / seconds / 10));
  const auto above = [idle](std::size_t memory) {
    return memory > idle ? (memory - idle) / 1048576.0 : 0.0;
  };
  std::printf(
      "\nThe hub's memory above idle meanwhile: %.1f MB; with a reader ten times as slow %.1f "
      "MB.\n",
      above(most), above(slow));
  return 0;
}
