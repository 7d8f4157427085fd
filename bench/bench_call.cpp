// A call over an established connection, request to answer, both ends ours, beside a bare epoll
// echo of as many bytes: the CPU time of both processes for one round trip. The callers' process is
// pinned to one core and the answering one to another, in both alike.

#include <unistd.h>

#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/bare_server.h"
#include "bench/give_up.h"
#include "bench/host_under_test.h"
#include "bench/side_by_side.h"
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

/// The CPU microseconds that both processes spend on one of `calls` round trips.
template <typename Calls>
double measure(pid_t server, unsigned int calls, Calls run) {
  const double before = cpu_seconds(0) + cpu_seconds(server);
  run(calls);
  return (cpu_seconds(0) + cpu_seconds(server) - before) / calls * 1e6;
}

/// The floor: both ends wait in epoll, read and write.
class Echo_Caller {
public:
  explicit Echo_Caller(int socket) : socket_(socket) { poll_.add(socket, 0); }
  ~Echo_Caller() { ::close(socket_); }
  Echo_Caller(const Echo_Caller&) = delete;
  Echo_Caller& operator=(const Echo_Caller&) = delete;

  void call(unsigned int calls) {
    for (; calls > 0; --calls) {
      send_all(socket_, request_text);
      for (std::size_t got = 0; got < answer_text.size();) {
        poll_.wait();
        const std::size_t length = receive(socket_, buffer_).size();
        if (length == 0) give_up("the floor closes");
        got += length;
      }
    }
  }

private:
  const int socket_;
  Poll poll_;
  std::vector<char> buffer_ = std::vector<char>(65536);
};

// Ours.

/// A link to the host, once it is up.
JSON_RPC_Channel_ptr connect(transport::Server& server, const std::string& url) {
  auto up = std::make_shared<std::promise<void>>();
  transport::Link_Options options;
  options.reconnect = false;
  options.changed = [up](bool is_up, const std::string& reason) {
    if (!is_up) give_up(reason.c_str());
    up->set_value();
  };
  JSON_RPC_Channel_ptr channel;
  std::string error;
  if (server.connect(url, options, channel, error) != 0) give_up(error.c_str());
  server.start();
  up->get_future().wait();
  return channel;
}

JSON_RPC_Object_var sum_request() {
  return JSON_RPC_Session::make_rpc_request("sum", json_spirit::Array{1, 2, 3});
}

void check(const JSON_RPC_Object* answer) {
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE) return;
  give_up("a call failed");
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

}  // namespace

int main(int argc, char** argv) {
  const unsigned int calls = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10000;
  const Bare_Server floor([](int listener) { answer_each(listener, '\n', answer_text); }, 1);
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--threads", "1"});
  pin(0, 0);
  Echo_Caller echo(floor.connect());
  ACE_Log_Msg::instance()->priority_mask(LM_ERROR | LM_EMERGENCY, ACE_Log_Msg::PROCESS);
  JSON_RPC_Service::create_registries();
  transport::Server server(transport::Limits(), 1);
  const JSON_RPC_Channel_ptr channel =
      connect(server, "tcp://127.0.0.1:" + std::to_string(host.port()));
  echo.call(1000);
  call_blocking(channel, 1, 1000);

  const auto row = [&](const char* name, auto call, unsigned int callers) {
    return Row{name,
               {[&] { return measure(floor.pid(), calls, [&](unsigned int n) { echo.call(n); }); },
                [&, call, callers] {
                  return measure(host.pid(), calls,
                                 [&](unsigned int n) { call(channel, callers, n); });
                }}};
  };
  Side_By_Side("calls; CPU us each", Side_By_Side::LESS)
      .measure({row("one at a time, without blocking", call_chained, 1),
                row("one at a time, a blocking call", call_blocking, 1),
                row("64 callers, without blocking", call_chained, 64),
                row("64 callers that block", call_blocking, 64)},
               5);
  server.stop(std::chrono::seconds(0));
  return 0;
}
