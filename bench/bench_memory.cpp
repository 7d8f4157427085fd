// What the host's memory does: an idle connection, a closed one, and an array of 1 GB that is
// counted.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "bench/give_up.h"
#include "bench/host_under_test.h"

namespace {

const char* const call = "{\"jsonrpc\":\"2.0\",\"method\":\"sum\",\"params\":[1,2],\"id\":1}\n";

void call_once(int socket) {
  send_all(socket, call);
  read_line(socket);
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

/// A line of the table.
void print(const char* what, double figure, const char* unit) {
  std::printf("| %s | %.1f %s |\n", what, figure, unit);
  std::fflush(stdout);
}

void idle_connections() {
  constexpr int connections = 900;
  const Host_Under_Test host({});
  warm_up(host);
  const std::size_t before = host.resident_bytes();
  std::vector<int> sockets;
  for (int i = 0; i < connections; ++i) {
    sockets.push_back(host.connect());
    call_once(sockets.back());
  }
  print("an idle connection, of 900",
        difference(host.resident_bytes(), before) / connections / 1024, "KiB");
  for (const int socket : sockets) ::close(socket);
}

void connect_call_close() {
  constexpr int cycles = 100'000;
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
  print("left by 100,000 connections with a call each",
        difference(host.resident_bytes(), memory) / 1024, "KiB");
  print("the same", difference(host.descriptors(), descriptors), "descriptors");
}

void count_a_gigabyte() {
  std::string piece;
  while (piece.size() < (1u << 20)) piece += "{\"a\":[1,2.5,\"text\"]},\"another text\",null,";
  const Host_Under_Test host({"--max-message", "0"});
  warm_up(host);
  const std::size_t idle = host.resident_bytes();
  std::size_t most = idle;
  const int socket = host.connect();
  send_all(socket, "{\"jsonrpc\":\"2.0\",\"method\":\"count\",\"params\":[");
  for (std::size_t sent = 0; sent < 1'000'000'000; sent += piece.size()) {
    send_all(socket, piece);
    most = std::max(most, host.resident_bytes());
  }
  send_all(socket, "0],\"id\":1}\n");
  if (read_line(socket).find("\"result\":") == std::string::npos) give_up("no result");
  ::close(socket);
  print("above idle while 1 GB of params is counted", difference(most, idle) / (1 << 20), "MiB");
}

}  // namespace

int main() {
  std::printf("| | less is better |\n|---|---|\n");
  idle_connections();
  connect_call_close();
  count_a_gigabyte();
  return 0;
}
