// Requests over TCP from many connections and with many in flight: how many of them the host serves
// in a second of its CPU time, beside a bare epoll server that reads, counts lines and answers each
// with fixed bytes of the same length, one write a read. Callers on one core, servers on another.
//
// A caller that has several requests in flight is, with "joined", one that writes all it may in one
// go when answers come, and else many who share a connection and write each for itself.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

constexpr unsigned int first_id = 1000000;  // all ids are as long
const std::string answer_text = "{\"jsonrpc\":\"2.0\",\"id\":1000000,\"result\":6}\n";

void add_request(std::string& text, unsigned int id) {
  text += "{\"jsonrpc\":\"2.0\",\"id\":";
  text += std::to_string(id);
  text += ",\"method\":\"sum\",\"params\":[1,2,3]}\n";
}

/// Connections with so many requests in flight on each.
class Callers {
public:
  Callers(const std::vector<int>& sockets, unsigned int depth, bool joined)
      : depth_(depth), joined_(joined) {
    for (const int socket : sockets) {
      poll_.add(socket, static_cast<unsigned int>(callers_.size()));
      callers_.push_back({socket, 0});
    }
  }

  /// Ends when that many requests, or a few more, have been answered.
  void run(unsigned int requests) {
    left_ = requests;
    for (Caller& caller : callers_) send(caller, depth_);
    for (std::size_t waiting = requests; waiting > 0;) {
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
    text_.clear();
    for (requests = std::min(requests, left_); requests > 0; --requests, --left_) {
      add_request(text_, first_id + left_ % first_id);
      if (joined_) continue;
      send_all(caller.socket, text_);
      text_.clear();
    }
    if (!text_.empty()) send_all(caller.socket, text_);
  }

  /// The answers that one read completes. They all have one length; anything else is no answer.
  unsigned int receive(Caller& caller) {
    const ssize_t length = ::recv(caller.socket, buffer_.data(), buffer_.size(), 0);
    if (length <= 0) fail("recv");
    const std::size_t end = caller.partial + length;
    const std::size_t rest = end % answer_text.size();
    if (rest == 0 && std::memcmp(&buffer_[length - 4], ":6}\n", 4) != 0) fail("a wrong answer");
    caller.partial = rest;
    return static_cast<unsigned int>(end / answer_text.size());
  }

  const unsigned int depth_;
  const bool joined_;
  Poll poll_;
  std::vector<Caller> callers_;
  unsigned int left_ = 0;  // to send
  std::string text_;
  std::vector<char> buffer_ = std::vector<char>(65536);
};

[[noreturn]] void serve_bare(int listener) {
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
      const auto count = std::count(buffer.begin(), buffer.begin() + length, '\n');
      while (answers.size() < count * answer_text.size()) answers += answer_text;
      if (count > 0) send_all(socket, answers.substr(0, count * answer_text.size()));
    }
  }
}

template <typename Server>
std::vector<int> connect(const Server& server, unsigned int connections) {
  std::vector<int> sockets;
  for (unsigned int i = 0; i < connections; ++i) {
    sockets.push_back(server.connect());
    no_delay(sockets.back());
  }
  return sockets;
}

/// The requests that a server answers in a second of its CPU time.
double rate(pid_t server, const std::vector<int>& sockets, unsigned int depth, bool joined,
            unsigned int requests) {
  Callers callers(sockets, depth, joined);
  callers.run(requests / 10);
  const double before = cpu_seconds(server);
  callers.run(requests);
  return requests / (cpu_seconds(server) - before);
}

struct Load {
  unsigned int connections;
  unsigned int depth;
  bool joined;
  std::vector<double> floor;
  std::vector<double> ours;
};

template <typename Server>
double rate(const Server& server, const Load& load, unsigned int requests) {
  const std::vector<int> sockets = connect(server, load.connections);
  const double result = rate(server.pid(), sockets, load.depth, load.joined, requests);
  for (const int socket : sockets) ::close(socket);
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int requests = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 40000;
  const Bare_Server floor(serve_bare, 1);
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--threads", "1"});
  pin(0, 0);
  Load loads[] = {{64, 1, true, {}, {}},
                  {1, 64, false, {}, {}},
                  {1, 64, true, {}, {}},
                  {64, 16, false, {}, {}},
                  {64, 16, true, {}, {}}};
  for (int round = 0; round < 5; ++round) {  // side by side, so that noise meets all alike
    for (Load& load : loads) {
      load.floor.push_back(rate(floor, load, requests));
      load.ours.push_back(rate(host, load, requests));
    }
  }
  std::printf(
      "| connections | in flight on each | floor | ours | ratio |\n|---|---|---|---|---|\n");
  for (const Load& load : loads) {
    const char* const how = load.depth == 1 ? "" : load.joined ? ", joined" : ", one write each";
    std::printf("| %u | %u%s | %.0f | %.0f | %.2f |\n", load.connections, load.depth, how,
                median(load.floor), median(load.ours), median(load.ours) / median(load.floor));
  }
  return 0;
}
