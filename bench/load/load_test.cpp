#include "bench/load/load.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "bench/load/dialect.h"

namespace {

/// Answers one connection's lines with their ids, and after so many stops for a while, or closes.
class Scripted_Server {
public:
  Scripted_Server(unsigned int answers, std::chrono::milliseconds stop, bool close)
      : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length);
    ::listen(listener_, 1);
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([=] { serve(answers, stop, close); });
  }
  ~Scripted_Server() {
    thread_.join();
    ::close(listener_);
  }
  Load load() const {
    Load load;
    EXPECT_TRUE(Door::parse("tcp://127.0.0.1:" + std::to_string(port_), load.door));
    load.methods = {{"sum", "[1]", 1}};
    return load;
  }

private:
  void serve(unsigned int answers, std::chrono::milliseconds stop, bool close) {
    const int socket = ::accept(listener_, nullptr, nullptr);
    char c;
    std::string line;
    for (unsigned int n = 0; ::recv(socket, &c, 1, 0) == 1;) {
      if (c != '\n') {
        line += c;
        continue;
      }
      if (n++ == answers && close) break;
      if (n == answers) std::this_thread::sleep_for(stop);
      line.replace(line.find(",\"method\""), std::string::npos, ",\"result\":1}\n");
      ::send(socket, line.data(), line.size(), MSG_NOSIGNAL);
      line.clear();
    }
    ::close(socket);
  }

  const int listener_;
  unsigned short port_ = 0;
  std::thread thread_;
};

}  // namespace

TEST(LoadTest, AStopIsChargedToAllCallsThatWereDueMeanwhile) {
  const Scripted_Server server(200, std::chrono::milliseconds(500), false);
  Load load = server.load();
  load.rate = 1000;
  load.warm_up = 0;
  load.seconds = 1;
  Result result;
  std::string error;
  ASSERT_TRUE(run_load(load, result, error)) << error;
  EXPECT_EQ(1000u, result.all.latencies.count());
  EXPECT_TRUE(result.all.errors.empty());
  // With one call in flight only one met the stop itself; half a second's worth waited behind it.
  EXPECT_GT(result.all.latencies.quantile(0.9), 250'000'000u);
  EXPECT_FALSE(result.cut);
}

TEST(LoadTest, AConnectionThatClosesEndsItsCallsAndTheRun) {
  const Scripted_Server server(100, std::chrono::milliseconds(0), true);
  Load load = server.load();
  load.rate = 1000;
  load.warm_up = 0;
  load.seconds = 60;
  Result result;
  std::string error;
  ASSERT_TRUE(run_load(load, result, error)) << error;
  EXPECT_TRUE(result.cut);
  EXPECT_EQ(1u, result.all.errors["closed"]);
}

TEST(LoadTest, AnswersAreFoundWhereverTheyAreCut) {
  const std::string answer = R"({"jsonrpc":"2.0","id":12,"result":"{\"id\":3}"})";
  const std::string size = std::to_string(answer.size());
  struct Case {
    const char* url;
    std::string bytes;
    int status;
  } const cases[] = {
      {"tcp://h:1", answer + "\n", 200},
      {"http://h:1", "HTTP/1.1 200 OK\r\ncontent-length: " + size + "\r\n\r\n" + answer, 200},
      {"http://h:1/x",
       "HTTP/1.1 503 Busy\r\nA: b\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n" +
           answer.substr(0, 5) + "\r\n2a\r\n" + answer.substr(5) + "\r\n0\r\n\r\n",
       503},
  };
  ASSERT_EQ(5u + 0x2a, answer.size());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    Door door;
    ASSERT_TRUE(Door::parse(c.url, door));
    const std::unique_ptr<Dialect> dialect = make_dialect(door);
    for (std::size_t n = 0; n < c.bytes.size(); ++n) {
      const Dialect::Found part = dialect->find_answer(c.bytes.substr(0, n));
      EXPECT_TRUE(part.used == 0 && !part.broken) << n;
    }
    const Dialect::Found found = dialect->find_answer(c.bytes + "more");
    EXPECT_EQ(c.bytes.size(), found.used);
    EXPECT_EQ(answer, found.answer);
    EXPECT_EQ(c.status, found.status);
    unsigned long long id;
    int code;
    EXPECT_TRUE(read_answer(found.answer, id, code));
    EXPECT_EQ(12u, id);
    EXPECT_EQ(0, code);
  }
}

TEST(LoadTest, ErrorsAreToldByTheirCodes) {
  unsigned long long id;
  int code;
  EXPECT_TRUE(
      read_answer(R"({"jsonrpc":"2.0","id":7,"error":{"code":-32601,"message":"m"}})", id, code));
  EXPECT_EQ(-32601, code);
  for (const char* const text :
       {R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700}})", R"({"id":"7","result":1})",
        R"({"id":7,"method":"m"})", "", "busy"}) {
    EXPECT_FALSE(read_answer(text, id, code)) << text;
  }
}

TEST(LoadTest, QuantilesAreOnePercentTooHighAtMost) {
  Histogram histogram;
  constexpr std::uint64_t step = 7919;
  for (std::uint64_t i = 1; i <= 100000; ++i) histogram.add(i * step);
  for (const double q : {0.00001, 0.001, 0.5, 0.99, 0.99999, 1.0}) {
    const double exact = q * 100000 * step;
    EXPECT_GE(histogram.quantile(q), exact - 1) << q;
    EXPECT_LE(histogram.quantile(q), exact * 1.01) << q;
  }
}
