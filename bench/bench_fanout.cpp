// A notification to many subscribers: how many deliveries the host makes in a second of its CPU
// time, beside a bare epoll server that writes each notification to each subscriber, one write
// each. One at a time, where each reached all before the next is sent, and with several in flight,
// where the host may join what goes to one subscriber.

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/bare_server.h"
#include "bench/give_up.h"
#include "bench/host_under_test.h"
#include "bench/side_by_side.h"

namespace {

const std::string notification =
    R"({"jsonrpc":"2.0","method":"price","params":{"symbol":"ABC","bid":101.25,"ask":101.5}})"
    "\n";
const std::string subscription =
    R"({"jsonrpc":"2.0","id":1,"method":"subscribe","params":{"subjects":["price"]}})"
    "\n";

/// A publisher and the subscribers of what it sends.
class Audience {
public:
  Audience(int publisher, const std::vector<int>& subscribers) : publisher_(publisher) {
    for (const int socket : subscribers) {
      poll_.add(socket, static_cast<unsigned int>(subscribers_.size()));
      subscribers_.push_back({socket, 0, 0});
    }
  }

  /// Ends when all have got that many notifications, of which up to `in_flight` are on their way.
  void run(unsigned int count, unsigned int in_flight) {
    arrivals_.assign(count, 0);
    for (Subscriber& subscriber : subscribers_) subscriber.got = 0;
    unsigned int sent = std::min(count, in_flight);
    publish(sent);
    for (unsigned int complete = 0; complete < count;) {
      unsigned int news = 0;
      for (const unsigned int key : poll_.spin()) news += receive(subscribers_[key]);
      complete += news;
      const unsigned int more = std::min(news, count - sent);
      publish(more);
      sent += more;
    }
  }

private:
  struct Subscriber {
    int socket;
    std::size_t partial;  // bytes of a notification that came in part
    unsigned int got;
  };

  void publish(unsigned int count) {
    std::string text;
    while (count-- > 0) text += notification;
    if (!text.empty()) send_all(publisher_, text);
  }

  /// How many notifications have with this read reached everybody.
  unsigned int receive(Subscriber& subscriber) {
    const std::string_view bytes = ::receive(subscriber.socket, buffer_);
    if (bytes.empty()) give_up("the server closes");
    const std::size_t end = subscriber.partial + bytes.size();
    subscriber.partial = end % notification.size();
    if (subscriber.partial == 0 && bytes.back() != '\n') give_up("no notification");
    unsigned int complete = 0;
    for (std::size_t n = end / notification.size(); n > 0; --n) {
      if (++arrivals_[subscriber.got++] == subscribers_.size()) ++complete;
    }
    return complete;
  }

  const int publisher_;
  Poll poll_;
  std::vector<Subscriber> subscribers_;
  std::vector<unsigned int> arrivals_;  // of each notification
  std::vector<char> buffer_ = std::vector<char>(65536);
};

/// The first to connect publishes; each who comes later gets a line at once, and subscribes so.
[[noreturn]] void serve_bare(int listener) {
  const int publisher = accept_from(listener);
  Poll poll;
  poll.add(listener, listener);
  poll.add(publisher, publisher);
  std::vector<int> subscribers;
  std::vector<char> buffer(65536);
  for (;;) {
    for (const unsigned int socket : poll.wait()) {
      if (static_cast<int>(socket) == listener) {
        subscribers.push_back(accept_from(listener));
        send_all(subscribers.back(), "true\n");
        continue;
      }
      const std::string_view bytes = receive(publisher, buffer);
      if (bytes.empty()) ::_exit(0);
      // What is sent together is a whole number of notifications, and less than the buffer.
      for (std::size_t at = 0; at < bytes.size(); at += notification.size()) {
        for (const int subscriber : subscribers) send_all(subscriber, notification);
      }
    }
  }
}

/// A server with a publisher and subscribers of its own.
struct Side {
  template <typename Server>
  Side(const Server& server, unsigned int count, bool ask)
      : pid(server.pid()), publisher(server.connect()) {
    for (unsigned int i = 0; i < count; ++i) {
      subscribers.push_back(server.connect());
      if (ask) send_all(subscribers.back(), subscription);
      read_line(subscribers.back());
    }
  }
  ~Side() {
    ::close(publisher);
    for (const int socket : subscribers) ::close(socket);
  }
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  /// Deliveries in a second of CPU time.
  double rate(unsigned int deliveries, unsigned int in_flight) const {
    Audience audience(publisher, subscribers);
    const unsigned int count =
        std::max<unsigned int>(deliveries / subscribers.size(), 2 * in_flight);
    audience.run(std::max(count / 10, in_flight), in_flight);
    const double before = cpu_seconds(pid);
    audience.run(count, in_flight);
    return count * subscribers.size() / (cpu_seconds(pid) - before);
  }

  const pid_t pid;
  const int publisher;
  std::vector<int> subscribers;
};

void compare(const Side_By_Side& table, const Host_Under_Test& host, unsigned int count,
             unsigned int deliveries) {
  const Bare_Server bare(serve_bare, 1);
  const Side floor(bare, count, false);
  const Side ours(host, count, true);
  std::vector<Row> rows;
  for (const unsigned int in_flight : {1u, 16u}) {
    rows.push_back({std::to_string(count) + " subscribers, " + std::to_string(in_flight),
                    {[&, in_flight] { return floor.rate(deliveries, in_flight); },
                     [&, in_flight] { return ours.rate(deliveries, in_flight); }}});
  }
  table.measure(rows, 5);
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int deliveries = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 50000;
  raise_descriptor_limit();
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--threads", "1", "--max-connections", "2000"});
  pin(0, 0);
  const Side_By_Side table("subscribers, notifications in flight; deliveries a CPU second",
                           Side_By_Side::MORE);
  for (const unsigned int count : {10u, 100u, 1000u}) compare(table, host, count, deliveries);
  return 0;
}
