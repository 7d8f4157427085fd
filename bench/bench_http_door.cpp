// Requests over HTTP and WebSocket from many connections: how many of them the host serves in a
// second of its CPU time, beside a bare epoll server that reads, counts requests by their last byte
// and answers each with as many bytes as the host does, one write a read. Callers, wrk for HTTP, on
// one core, servers on another. wrk sleeps when it has nothing to do, so there both servers pay for
// waking it.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bare_server.h"
#include "bench/callers.h"
#include "bench/give_up.h"
#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

constexpr unsigned int connections = 64;
constexpr char last_byte = '}';  // of every request

std::string frame_of(unsigned char mask_bit, const std::string& mask, const std::string& text) {
  return std::string("\x81") + static_cast<char>(mask_bit | text.size()) + mask + text;
}

/// Text in one frame (RFC 6455). A mask of zeros leaves it as it is, and costs as much as any.
Exchange websocket_exchange() {
  const std::string before = R"({"jsonrpc":"2.0","id":)", id = "1000000";
  const std::string after = R"(,"method":"sum","params":[1,2,3]})";
  const std::string request = frame_of(0x80, std::string(4, '\0'), before + id + after);
  const std::string answer = R"({"jsonrpc":"2.0","id":1000000,"result":6})";
  return {request.substr(0, request.size() - id.size() - after.size()), after,
          frame_of(0, "", answer)};
}

std::string ask(int socket, const std::string& request) {
  std::vector<char> buffer(4096);
  send_all(socket, request);
  return std::string(receive(socket, buffer));
}

/// The host's answer, head and all, to the request that wrk sends.
std::string ask_over_http(const Host_Under_Test& host) {
  const std::string request = R"({"jsonrpc":"2.0","id":1,"method":"sum","params":[1,2,3]})";
  const int socket = host.connect();
  const std::string answer =
      ask(socket,
          "POST /rpc HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
          "Content-Length: " +
              std::to_string(request.size()) + "\r\n\r\n" + request);
  ::close(socket);
  if (answer.find("\r\n\r\n{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":6}\n") == std::string::npos) {
    give_up("a wrong answer");
  }
  return answer;
}

/// Has wrk post requests for some seconds; how many were answered. `extra` are arguments of its
/// script.
double run_wrk(unsigned short port, unsigned int seconds, const char* extra = "") {
  const std::string command =
      "wrk --threads 1 --connections " + std::to_string(connections) + " --duration " +
      std::to_string(seconds) +
      "s --script '" WRK_SCRIPT "' http://127.0.0.1:" + std::to_string(port) + "/rpc " + extra;
  std::FILE* const output = ::popen(command.c_str(), "r");
  if (output == nullptr) give_up("wrk");
  unsigned long answered = 0;
  unsigned long errors = 1;
  char line[256];
  while (std::fgets(line, sizeof line, output) != nullptr) {
    std::sscanf(line, "answered %lu errors %lu", &answered, &errors);
  }
  if (::pclose(output) != 0 || errors != 0 || answered == 0) give_up("wrk saw errors");
  return answered;
}

template <typename Server>
double rate_over_http(const Server& server) {
  const double before = cpu_seconds(server.pid());
  const double answered = run_wrk(server.port(), 1);
  return answered / (cpu_seconds(server.pid()) - before);
}

void upgrade(int socket) {
  const std::string answer =
      ask(socket,
          "GET /rpc HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
          "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
  if (answer.rfind("HTTP/1.1 101 ", 0) != 0) give_up("no upgrade");
}

template <typename Server>
double rate_over_websocket(const Server& server, bool upgrades, unsigned int depth) {
  static const Exchange exchange = websocket_exchange();
  std::vector<int> sockets;
  while (sockets.size() < connections) {
    sockets.push_back(server.connect());
    if (upgrades) upgrade(sockets.back());
  }
  return requests_per_cpu_second(server.pid(), sockets, exchange, {connections, depth, true},
                                 40000);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 5;
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--listen", "http://127.0.0.1:0", "--threads", "1"});
  pin(0, 0);
  const std::string http_answer = ask_over_http(host);
  const std::string websocket_answer = websocket_exchange().answer;
  const Bare_Server http([&](int listener) { answer_each(listener, last_byte, http_answer); }, 1);
  const Bare_Server websocket(
      [&](int listener) { answer_each(listener, last_byte, websocket_answer); }, 1);
  run_wrk(host.port(), 1, "check");

  std::vector<Row> rows = {
      {"HTTP", {[&] { return rate_over_http(http); }, [&] { return rate_over_http(host); }}}};
  for (const unsigned int depth : {1, 16}) {
    rows.push_back({"WebSocket, " + std::to_string(depth) + " in flight on each",
                    {[&, depth] { return rate_over_websocket(websocket, false, depth); },
                     [&, depth] { return rate_over_websocket(host, true, depth); }}});
  }
  Side_By_Side(std::to_string(connections) + " connections; requests a CPU second",
               Side_By_Side::MORE)
      .measure(rows, rounds);
  return 0;
}
