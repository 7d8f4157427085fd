// A call over an established connection, request to answer, both ends ours, beside a bare epoll
// echo of as many bytes: the CPU time of both processes for one round trip. The callers' process is
// pinned to one core and the answering one to another, in both alike.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/host_under_test.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_response_map.h"
#include "json_rpc/json_rpc_service.h"
#include "json_rpc/json_rpc_session.h"
#include "transport/server.h"

namespace {

const std::string request_text =
    R"({"jsonrpc":"2.0","id":"01234567-89ab-cdef-0123-456789abcdef","method":"sum","params":[1,2,3]})"
    "\n";
const std::string answer_text =
    R"({"jsonrpc":"2.0","id":"01234567-89ab-cdef-0123-456789abcdef","result":6})"
    "\n";

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void pin(pid_t process, int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  if (::sched_setaffinity(process, sizeof set, &set) != 0) fail("sched_setaffinity");
}

double cpu_seconds(pid_t process) {
  clockid_t clock;
  timespec time;
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    fail("clock_getcpuclockid");
  }
  return time.tv_sec + time.tv_nsec / 1e9;
}

/// The CPU microseconds that both processes spend on one of `calls` round trips.
template <typename Calls>
double measure(pid_t server, unsigned int calls, Calls run) {
  const double before = cpu_seconds(::getpid()) + cpu_seconds(server);
  run(calls);
  return (cpu_seconds(::getpid()) + cpu_seconds(server) - before) / calls * 1e6;
}

// The floor: both ends wait in epoll, read and write.

class Epoll {
public:
  explicit Epoll(int socket) : socket_(socket), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
    epoll_event event = {};
    event.events = EPOLLIN;
    if (::epoll_ctl(epoll_, EPOLL_CTL_ADD, socket, &event) != 0) fail("epoll_ctl");
  }
  /// Reads `size` bytes; false at the end of the stream.
  bool read(std::size_t size) {
    std::array<char, 65536> buffer;
    for (std::size_t got = 0; got < size;) {
      epoll_event event;
      if (::epoll_wait(epoll_, &event, 1, -1) != 1) continue;
      const ssize_t length = ::read(socket_, buffer.data(), buffer.size());
      if (length <= 0) return false;
      got += length;
    }
    return true;
  }
  void write(const std::string& text) { send_all(socket_, text); }

private:
  const int socket_;
  const int epoll_;
};

int listen_on_loopback(sockaddr_in& address) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
      ::listen(listener, 1) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    fail("listen");
  }
  return listener;
}

void no_delay(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

double floor_of(unsigned int calls) {
  sockaddr_in address;
  const int listener = listen_on_loopback(address);
  const pid_t server = ::fork();
  if (server == -1) fail("fork");
  if (server == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int socket = ::accept(listener, nullptr, nullptr);
    no_delay(socket);
    Epoll epoll(socket);
    while (epoll.read(request_text.size())) epoll.write(answer_text);
    ::_exit(0);
  }
  pin(server, 1);
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    fail("connect");
  }
  no_delay(socket);
  ::close(listener);
  Epoll epoll(socket);
  const auto run = [&](unsigned int count) {
    for (unsigned int i = 0; i < count; ++i) {
      epoll.write(request_text);
      epoll.read(answer_text.size());
    }
  };
  run(1000);
  const double microseconds = measure(server, calls, run);
  ::close(socket);
  ::waitpid(server, nullptr, 0);
  return microseconds;
}

// Ours.

/// A link to the host, once it is up.
JSON_RPC_Channel_ptr connect(transport::Server& server, const std::string& url) {
  auto up = std::make_shared<std::promise<void>>();
  transport::Link_Options options;
  options.reconnect = false;
  options.changed = [up](bool is_up, const std::string& reason) {
    if (!is_up) {
      std::fprintf(stderr, "bench_call: %s\n", reason.c_str());
      std::exit(1);
    }
    up->set_value();
  };
  JSON_RPC_Channel_ptr channel(JSON_RPC_Channel::none());
  std::string error;
  if (server.connect(url, options, channel, error) != 0) fail(error.c_str());
  server.start();
  up->get_future().wait();
  return channel;
}

JSON_RPC_Object_var sum_request() {
  return JSON_RPC_Session::make_rpc_request("sum", json_spirit::Array{1, 2, 3});
}

void check(const JSON_RPC_Object* answer) {
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE) return;
  std::fprintf(stderr, "bench_call: a call failed\n");
  std::exit(1);
}

/// Threads that share the channel, each with calls that block.
void call_blocking(const JSON_RPC_Channel_ptr& channel, unsigned int callers, unsigned int calls) {
  std::vector<std::thread> threads;
  for (unsigned int i = 0; i < callers; ++i) {
    threads.emplace_back([&] {
      JSON_RPC_Session session(channel);
      for (unsigned int n = 0; n < calls / callers; ++n) {
        JSON_RPC_Object_var answer;
        if (!session.request(sum_request(), answer, 10)) check(nullptr);
        check(answer.get());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

/// A caller that does not block: it sends its next call when the answer to the last one comes.
class Chain final : public JSON_RPC_Handler {
public:
  Chain(const JSON_RPC_Channel_ptr& channel, unsigned int calls)
      : channel_(channel), left_(calls) {}
  void self(const JSON_RPC_Handler_var& self) { self_ = self; }
  void next() {
    const JSON_RPC_Object_var request = sum_request();
    JSON_RPC_Id_Generator::gen(*request);
    JSON_RPC_Response_Map::instance()->insert(request->id, self_);
    if (JSON_RPC_Channel_var(channel_)->send(request) != 0) check(nullptr);
  }
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var answer) override {
    check(answer.get());
    JSON_RPC_Response_Map::instance()->remove(answer->id);
    if (--left_ > 0) {
      next();
    } else {
      done_.set_value();
    }
    return 0;
  }
  void wait() { done_.get_future().wait(); }

private:
  const JSON_RPC_Channel_ptr channel_;
  unsigned int left_;
  JSON_RPC_Handler_var self_;
  std::promise<void> done_;
};

void call_chained(const JSON_RPC_Channel_ptr& channel, unsigned int callers, unsigned int calls) {
  std::vector<Chain*> chains;
  std::vector<JSON_RPC_Handler_var> handles;
  for (unsigned int i = 0; i < callers; ++i) {
    chains.push_back(new Chain(channel, calls / callers));
    handles.emplace_back(chains.back());
    chains.back()->self(handles.back());
  }
  for (Chain* chain : chains) chain->next();
  for (Chain* chain : chains) chain->wait();
  for (Chain* chain : chains) chain->self(JSON_RPC_Handler_var());
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int calls = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 20000;
  pin(0, 1);  // what it starts inherits the core
  Host_Under_Test host({"--threads", "1"});
  pin(0, 0);
  JSON_RPC_Service::create_registries();
  transport::Server server(transport::Limits(), 1);
  const JSON_RPC_Channel_ptr channel =
      connect(server, "tcp://127.0.0.1:" + std::to_string(host.port()));
  call_blocking(channel, 1, 1000);

  struct Line {
    const char* name;
    void (*run)(const JSON_RPC_Channel_ptr&, unsigned int callers, unsigned int calls);
    unsigned int callers;
    std::vector<double> times;
  } lines[] = {{"one at a time, without blocking", call_chained, 1, {}},
               {"one at a time, a blocking call", call_blocking, 1, {}},
               {"64 callers, without blocking", call_chained, 64, {}},
               {"64 callers that block", call_blocking, 64, {}}};
  std::vector<double> floors;
  for (int round = 0; round < 5; ++round) {  // side by side, so that noise meets all alike
    floors.push_back(floor_of(calls));
    for (Line& line : lines) {
      line.times.push_back(measure(
          host.pid(), calls, [&](unsigned int count) { line.run(channel, line.callers, count); }));
    }
  }
  const double floor = median(floors);
  std::printf("| calls | floor, us | ours, us | ratio |\n|---|---|---|---|\n");
  for (const Line& line : lines) {
    std::printf("| %s | %.1f | %.1f | %.2f |\n", line.name, floor, median(line.times),
                median(line.times) / floor);
  }
  std::fflush(stdout);
  server.stop(std::chrono::seconds(0));
  return 0;
}
