// A notification to many subscribers: how many deliveries the host makes in a second of its CPU
// time, beside a bare epoll server that writes each notification to each subscriber, one write
// each. One at a time, where each reached all before the next is sent, and with several in flight,
// where the host may join what goes to one subscriber.

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

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
    const ssize_t length = ::recv(subscriber.socket, buffer_.data(), buffer_.size(), 0);
    if (length <= 0) fail("recv");
    const std::size_t end = subscriber.partial + length;
    subscriber.partial = end % notification.size();
    if (subscriber.partial == 0 && buffer_[length - 1] != '\n') fail("no notification");
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
  const int publisher = ::accept(listener, nullptr, nullptr);
  Poll poll;
  poll.add(listener, listener);
  poll.add(publisher, publisher);
  std::vector<int> subscribers;
  std::vector<char> buffer(65536);
  for (;;) {
    for (const unsigned int socket : poll.wait()) {
      if (static_cast<int>(socket) == listener) {
        subscribers.push_back(::accept(listener, nullptr, nullptr));
        no_delay(subscribers.back());
        send_all(subscribers.back(), "true\n");
        continue;
      }
      const ssize_t length = ::recv(publisher, buffer.data(), buffer.size(), 0);
      if (length <= 0) ::_exit(0);
      // What is sent together is a whole number of notifications, and less than the buffer.
      for (ssize_t at = 0; at < length; at += notification.size()) {
        for (const int subscriber : subscribers) send_all(subscriber, notification);
      }
    }
  }
}

/// A server with a publisher and subscribers of its own.
struct Side {
  template <typename Server>
  Side(const Server& server, unsigned int count, bool ask) : pid(server.pid()) {
    publisher = server.connect();
    no_delay(publisher);
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

  pid_t pid;
  int publisher;
  std::vector<int> subscribers;
};

void compare(const Host_Under_Test& host, unsigned int count, unsigned int deliveries) {
  const Bare_Server bare(serve_bare, 1);
  const Side floor(bare, count, false);
  const Side ours(host, count, true);
  for (const unsigned int in_flight : {1u, 16u}) {
    std::vector<double> floors;
    std::vector<double> rates;
    for (int round = 0; round < 5; ++round) {  // side by side, so that noise meets both alike
      floors.push_back(floor.rate(deliveries, in_flight));
      rates.push_back(ours.rate(deliveries, in_flight));
    }
    std::printf("| %u | %u | %.0f | %.0f | %.2f |\n", count, in_flight, median(floors),
                median(rates), median(rates) / median(floors));
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned int deliveries = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100000;
  raise_descriptor_limit();
  pin(0, 1);  // what it starts inherits the core
  const Host_Under_Test host({"--threads", "1", "--max-connections", "2000"});
  pin(0, 0);
  std::printf("| subscribers | in flight | floor | ours | ratio |\n|---|---|---|---|---|\n");
  for (const unsigned int count : {10u, 100u, 1000u}) compare(host, count, deliveries);
  return 0;
}
