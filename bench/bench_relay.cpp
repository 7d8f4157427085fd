// A large answer relayed by a hub: the CPU time that the hub spends on it, beside what the same
// bytes cost to parse with empty callbacks and to generate again, both with yajl and in one thread.
// And the hub's memory meanwhile.

#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <yajl/yajl_gen.h>
#include <yajl/yajl_parse.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/host_under_test.h"

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

double cpu_seconds(clockid_t clock) {
  timespec time;
  if (::clock_gettime(clock, &time) != 0) fail("clock_gettime");
  return time.tv_sec + time.tv_nsec / 1e9;
}

double cpu_seconds_of(pid_t process) {
  clockid_t clock;
  if (::clock_getcpuclockid(process, &clock) != 0) fail("clock_getcpuclockid");
  return cpu_seconds(clock);
}

int take_null(void*) { return 1; }
int take_boolean(void*, int) { return 1; }
int take_text(void*, const unsigned char*, size_t) { return 1; }
int take_number(void*, const char*, size_t) { return 1; }

/// Parses pieces of the size that a connection reads, and throws every event away.
void parse(const std::string& piece, unsigned int pieces) {
  const yajl_callbacks callbacks = {take_null,   take_boolean, nullptr,   nullptr,
                                    take_number, take_text,    take_null, take_text,
                                    take_null,   take_null,    take_null};
  const yajl_handle handle = yajl_alloc(&callbacks, nullptr, nullptr);
  const auto feed = [&](const char* text, std::size_t length) {
    if (yajl_parse(handle, reinterpret_cast<const unsigned char*>(text), length) !=
        yajl_status_ok) {
      fail("yajl_parse");
    }
  };
  feed("[0", 2);
  for (unsigned int i = 0; i < pieces; ++i) feed(piece.data(), piece.size());
  feed("]", 1);
  yajl_free(handle);
}

void append(void* to, const char* text, size_t length) {
  std::string& buffer = *static_cast<std::string*>(to);
  buffer.append(text, length);
  if (buffer.size() >= 65536) buffer.clear();
}

void generate(const std::string& text, unsigned int texts) {
  std::string buffer;
  const yajl_gen gen = yajl_gen_alloc(nullptr);
  yajl_gen_config(gen, yajl_gen_print_callback, append, &buffer);
  yajl_gen_array_open(gen);
  for (unsigned int i = 0; i < texts; ++i) {
    yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(text.data()), text.size());
  }
  yajl_gen_array_close(gen);
  yajl_gen_free(gen);
}

double floor_of(unsigned long long bytes) {
  const std::string text(1024, 'x');
  std::string piece;
  while (piece.size() < 65536) piece += ",\"" + text + '"';
  const unsigned int texts = bytes / text.size();
  const double before = cpu_seconds(CLOCK_PROCESS_CPUTIME_ID);
  parse(piece, bytes / piece.size());
  generate(text, texts);
  return cpu_seconds(CLOCK_PROCESS_CPUTIME_ID) - before;
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
  for (ssize_t length; (length = ::recv(socket, buffer.data(), buffer.size(), 0)) > 0;) {
    const bool sample = got >> 24 != (got + length) >> 24;
    got += length;
    if (sample) most = std::max(most, hub.resident_bytes());
    if (buffer[length - 1] == '\n') break;
    if (bytes_a_second != 0) {
      std::this_thread::sleep_until(begin +
                                    std::chrono::microseconds(got * 1000000 / bytes_a_second));
    }
  }
  ::close(socket);
  if (got < bytes) {
    std::fprintf(stderr, "bench_relay: %llu of %llu bytes came\n", got, bytes);
    std::exit(1);
  }
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

  std::vector<std::pair<double, double>> rounds;  // the floor, ours
  std::size_t most = 0;
  double seconds = 0;
  for (int round = 0; round < 3; ++round) {
    const double floor = floor_of(bytes);
    const double before = cpu_seconds_of(hub.pid());
    const auto begin = std::chrono::steady_clock::now();
    most = std::max(most, relay(hub, bytes, 0));
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    rounds.emplace_back(floor, cpu_seconds_of(hub.pid()) - before);
  }
  std::sort(rounds.begin(), rounds.end(),
            [](const auto& a, const auto& b) { return a.second / a.first < b.second / b.first; });
  const auto& middle = rounds[rounds.size() / 2];
  std::printf(
      "| relayed | floor, s | the hub, s | ratio | memory above idle, MB | slow reader, MB |\n");
  std::printf("|---|---|---|---|---|---|\n");
  const unsigned long long part = bytes / 8;
  const std::size_t slow = relay(hub, part, static_cast<unsigned long long>(bytes / seconds / 10));
  const auto above = [idle](std::size_t memory) {
    return memory > idle ? (memory - idle) / 1048576.0 : 0.0;
  };
  std::printf("| %llu MB | %.2f | %.2f | %.2f | %.1f | %.1f |\n", bytes >> 20, middle.first,
              middle.second, middle.second / middle.first, above(most), above(slow));
  return 0;
}
