// Requests over HTTP and WebSocket from many connections: how many of them the host serves in a
// second of its CPU time, beside a bare epoll server that reads, counts requests by their last byte
// and answers each with the very bytes that the host does, one write a read. Callers, wrk for HTTP,
// on one core, servers on another. wrk sleeps when it has nothing to do, so there both servers pay
// for waking it.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

constexpr unsigned int connections = 64;

/// Ends every request, and stands nowhere else in it.
constexpr char last_byte = '}';
const std::string request_text = R"({"jsonrpc":"2.0","id":1,"method":"sum","params":[1,2,3]})";
const std::string answer_text = R"({"jsonrpc":"2.0","id":1,"result":6})";

// Text in one frame (RFC 6455). A mask of zeros leaves it as it is, and costs as much as any.
const std::string request_frame = std::string("\x81") +
                                  static_cast<char>(0x80 | request_text.size()) +
                                  std::string(4, '\0') + request_text;
const std::string answer_frame =
    std::string("\x81") + static_cast<char>(answer_text.size()) + answer_text;

/// What the host answers to a request over HTTP, head and all. Before the floor is started.
std::string http_answer;

[[noreturn]] void serve_bare(int listener, const std::string& answer) {
  Poll poll;
  poll.add(listener, listener);
  std::vector<char> buffer(65536);
  std::string answers;
  for (;;) {
    for (const unsigned int socket : poll.wait()) {
      if (static_cast<int>(socket) == listener) {
        const int accepted = ::accept(listener, nullptr, nullptr);
        no_delay(accepted);
        poll.add(accepted, accepted);
        continue;
      }
      const ssize_t length = ::recv(socket, buffer.data(), buffer.size(), 0);
      if (length <= 0) {
        ::close(socket);
        continue;
      }
      const auto count = std::count(buffer.begin(), buffer.begin() + length, last_byte);
      answers.clear();
      for (auto i = count; i > 0; --i) answers += answer;
      // wrk goes without waiting for its last answers.
      if (count > 0) ::send(socket, answers.data(), answers.size(), MSG_NOSIGNAL);
    }
  }
}

std::string receive(int socket) {
  char buffer[4096];
  const ssize_t length = ::recv(socket, buffer, sizeof buffer, 0);
  if (length <= 0) fail("recv");
  return std::string(buffer, length);
}

/// The host's answer to the request that wrk sends.
std::string ask_over_http(const Host_Under_Test& host) {
  const int socket = host.connect();
  send_all(socket,
           "POST /rpc HTTP/1.1\r\nHost: localhost\r\nContent-Type: application/json\r\n"
           "Content-Length: " +
               std::to_string(request_text.size()) + "\r\n\r\n" + request_text);
  const std::string answer = receive(socket);
  ::close(socket);
  if (answer.find("\r\n\r\n" + answer_text + "\n") == std::string::npos) fail("a wrong answer");
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
  if (output == nullptr) fail("wrk");
  unsigned long answered = 0;
  unsigned long errors = 1;
  char line[256];
  while (std::fgets(line, sizeof line, output) != nullptr) {
    std::sscanf(line, "answered %lu errors %lu", &answered, &errors);
  }
  if (::pclose(output) != 0 || errors != 0 || answered == 0) fail("wrk saw errors");
  return answered;
}

/// Connections that have been upgraded, with so many requests in flight on each; all that it may, a
/// caller writes in one go.
class Websocket_Callers {
public:
  Websocket_Callers(const std::vector<int>& sockets, unsigned int depth) : depth_(depth) {
    for (const int socket : sockets) {
      poll_.add(socket, static_cast<unsigned int>(callers_.size()));
      callers_.push_back({socket, 0});
    }
  }

  /// Ends when that many requests have been answered.
  void run(unsigned int requests) {
    left_ = requests;
    for (const Caller& caller : callers_) send(caller, depth_);
    for (unsigned int waiting = requests; waiting > 0;) {
      for (const unsigned int key : poll_.spin()) {
        const unsigned int answers = receive(callers_[key]);
        waiting -= answers;
        send(callers_[key], answers);
      }
    }
  }

private:
  struct Caller {
    int socket;
    std::size_t partial;  // bytes of an answer that came in part
  };

  void send(const Caller& caller, unsigned int requests) {
    requests = std::min(requests, left_);
    left_ -= requests;
    text_.clear();
    for (; requests > 0; --requests) text_ += request_frame;
    if (!text_.empty()) send_all(caller.socket, text_);
  }

  /// The answers that one read completes.
  unsigned int receive(Caller& caller) {
    const ssize_t length = ::recv(caller.socket, buffer_.data(), buffer_.size(), 0);
    if (length <= 0) fail("recv");
    for (ssize_t i = 0; i < length; ++i) {
      if (buffer_[i] != answer_frame[(caller.partial + i) % answer_frame.size()]) {
        fail("a wrong answer");
      }
    }
    const std::size_t end = caller.partial + length;
    caller.partial = end % answer_frame.size();
    return static_cast<unsigned int>(end / answer_frame.size());
  }

  const unsigned int depth_;
  Poll poll_;
  std::vector<Caller> callers_;
  unsigned int left_ = 0;  // to send
  std::string text_;
  std::vector<char> buffer_ = std::vector<char>(65536);
};

void upgrade(int socket) {
  send_all(socket,
           "GET /rpc HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
           "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\n\r\n");
  if (receive(socket).rfind("HTTP/1.1 101 ", 0) != 0) fail("no upgrade");
}

template <typename Server>
std::vector<int> connect(const Server& server) {
  std::vector<int> sockets;
  for (unsigned int i = 0; i < connections; ++i) {
    sockets.push_back(server.connect());
    no_delay(sockets.back());
  }
  return sockets;
}

double rate_of_websocket(pid_t server, const std::vector<int>& sockets, unsigned int depth) {
  constexpr unsigned int requests = 40000;
  Websocket_Callers callers(sockets, depth);
  callers.run(requests / 10);
  const double before = cpu_seconds(server);
  callers.run(requests);
  const double after = cpu_seconds(server);
  for (const int socket : sockets) ::close(socket);
  return requests / (after - before);
}

double rate_of_http(pid_t server, unsigned short port) {
  constexpr unsigned int seconds = 2;
  const double before = cpu_seconds(server);
  const double answered = run_wrk(port, seconds);
  return answered / (cpu_seconds(server) - before);
}

struct Load {
  std::string name;
  std::function<double()> run_floor;
  std::function<double()> run_ours;
  std::vector<double> floor;
  std::vector<double> ours;
};

}  // namespace

int main(int argc, char** argv) {
  const unsigned long rounds = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 7;
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--listen", "http://127.0.0.1:0", "--threads", "1"});
  pin(0, 0);
  http_answer = ask_over_http(host);
  const Bare_Server http([](int listener) { serve_bare(listener, http_answer); }, 1);
  const Bare_Server websocket([](int listener) { serve_bare(listener, answer_frame); }, 1);
  run_wrk(host.port(), 1, "check");

  const auto websocket_load = [&](std::string name, unsigned int depth) {
    const auto floor = [&, depth] {
      return rate_of_websocket(websocket.pid(), connect(websocket), depth);
    };
    const auto ours = [&, depth] {
      const std::vector<int> sockets = connect(host);
      for (const int socket : sockets) upgrade(socket);
      return rate_of_websocket(host.pid(), sockets, depth);
    };
    return Load{std::move(name), floor, ours, {}, {}};
  };
  Load loads[] = {{"HTTP",
                   [&] { return rate_of_http(http.pid(), http.port()); },
                   [&] { return rate_of_http(host.pid(), host.port()); },
                   {},
                   {}},
                  websocket_load("WebSocket", 1),
                  websocket_load("WebSocket, 16 in flight on each", 16)};
  for (unsigned long round = 0; round < rounds; ++round) {  // so that noise meets all alike
    for (Load& load : loads) {
      load.floor.push_back(load.run_floor());
      load.ours.push_back(load.run_ours());
    }
  }
  std::printf("| %u connections | floor | ours | ratio |\n|---|---|---|---|\n", connections);
  for (const Load& load : loads) {
    std::printf("| %s | %.0f | %.0f | %.2f |\n", load.name.c_str(), median(load.floor),
                median(load.ours), median(load.ours) / median(load.floor));
  }
  return 0;
}
