// Requests over TCP from many connections and with many in flight: how many of them the host serves
// in a second of its CPU time, beside a bare epoll server that reads, counts lines and answers each
// with fixed bytes of the same length, one write a read. Callers on one core, servers on another.

#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bare_server.h"
#include "bench/callers.h"
#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

const Exchange exchange = {
    "{\"jsonrpc\":\"2.0\",\"id\":", ",\"method\":\"sum\",\"params\":[1,2,3]}\n",
    "{\"jsonrpc\":\"2.0\",\"id\":1000000,\"result\":6}\n"};

template <typename Server>
double rate(const Server& server, const Callers_Load& load, unsigned int requests) {
  std::vector<int> sockets;
  while (sockets.size() < load.connections) sockets.push_back(server.connect());
  return requests_per_cpu_second(server.pid(), sockets, exchange, load, requests);
}

std::string name_of(const Callers_Load& load) {
  const char* const how = load.depth == 1 ? "" : load.joined ? ", joined" : ", one write each";
  return std::to_string(load.connections) + " x " + std::to_string(load.depth) + how;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int requests = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 40000;
  const Bare_Server floor([](int listener) { answer_each(listener, '\n', exchange.answer); }, 1);
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--threads", "1"});
  pin(0, 0);
  std::vector<Row> rows;
  for (const Callers_Load load :
       {Callers_Load{64, 1, true}, Callers_Load{1, 64, false}, Callers_Load{1, 64, true},
        Callers_Load{64, 16, false}, Callers_Load{64, 16, true}}) {
    rows.push_back({name_of(load),
                    {[&, load] { return rate(floor, load, requests); },
                     [&, load] { return rate(host, load, requests); }}});
  }
  Side_By_Side("connections x in flight on each; requests a CPU second", Side_By_Side::MORE)
      .measure(rows, 5);
  return 0;
}
