// What the host's memory does: an idle connection, a closed one, and an array of 1 GB that is
// counted. The figures are the counters; the times are of no interest.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "bench/host_under_test.h"

namespace {

const char* const call = "{\"jsonrpc\":\"2.0\",\"method\":\"sum\",\"params\":[1,2],\"id\":1}\n";

void call_once(int socket) {
  send_all(socket, call);
  benchmark::DoNotOptimize(read_line(socket));
}

/// Closed connections are noticed by their loops, not by us.
void settle() { std::this_thread::sleep_for(std::chrono::milliseconds(500)); }

void warm_up(const Host_Under_Test& host) {
  for (int i = 0; i < 200; ++i) {
    const int socket = host.connect();
    call_once(socket);
    ::close(socket);
  }
  settle();
}

double difference(std::size_t after, std::size_t before) {
  return static_cast<double>(after) - static_cast<double>(before);
}

void idle_connection(benchmark::State& state) {
  constexpr int connections = 900;
  for (auto _ : state) {
    const Host_Under_Test host({});
    warm_up(host);
    const std::size_t before = host.resident_bytes();
    std::vector<int> sockets;
    for (int i = 0; i < connections; ++i) {
      sockets.push_back(host.connect());
      call_once(sockets.back());
    }
    state.counters["KiB_each"] = difference(host.resident_bytes(), before) / connections / 1024;
    for (const int socket : sockets) ::close(socket);
  }
}
BENCHMARK(idle_connection)->Iterations(1)->Unit(benchmark::kMillisecond);

void connect_call_close(benchmark::State& state) {
  constexpr int cycles = 100'000;
  for (auto _ : state) {
    const Host_Under_Test host({});
    warm_up(host);
    const std::size_t memory = host.resident_bytes();
    const std::size_t descriptors = host.descriptors();
    for (int i = 0; i < cycles; ++i) {
      const int socket = host.connect();
      call_once(socket);
      ::close(socket);
    }
    settle();
    state.counters["KiB_left"] = difference(host.resident_bytes(), memory) / 1024;
    state.counters["descriptors_left"] = difference(host.descriptors(), descriptors);
  }
}
BENCHMARK(connect_call_close)->Iterations(1)->Unit(benchmark::kMillisecond);

void count_a_gigabyte(benchmark::State& state) {
  std::string piece;
  while (piece.size() < (1u << 20)) piece += "{\"a\":[1,2.5,\"text\"]},\"another text\",null,";
  for (auto _ : state) {
    const Host_Under_Test host({"--max-message", "0"});
    warm_up(host);
    const std::size_t idle = host.resident_bytes();
    std::size_t most = idle;
    const int socket = host.connect();
    send_all(socket, "{\"jsonrpc\":\"2.0\",\"method\":\"count\",\"params\":[");
    std::size_t sent = 0;
    for (; sent < 1'000'000'000; sent += piece.size()) {
      send_all(socket, piece);
      most = std::max(most, host.resident_bytes());
    }
    send_all(socket, "0],\"id\":1}\n");
    if (read_line(socket).find("\"result\":") == std::string::npos)
      state.SkipWithError("no result");
    ::close(socket);
    state.SetBytesProcessed(static_cast<int64_t>(sent));
    state.counters["MiB_over_idle"] = difference(most, idle) / (1 << 20);
  }
}
BENCHMARK(count_a_gigabyte)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
