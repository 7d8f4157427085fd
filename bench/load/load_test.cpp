#include "bench/load/load.h"

#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <chrono>
#include <string>
#include <thread>

#include "bench/load/dialect.h"

namespace {

using boost::asio::ip::tcp;

/// Answers one connection's lines with their ids, and after so many of them stops for a while, or
/// closes where that is 0.
class Scripted_Server {
public:
  Scripted_Server(unsigned int answers, std::chrono::milliseconds stop)
      : thread_([=] { serve(answers, stop); }) {}
  ~Scripted_Server() { thread_.join(); }

  /// A call each millisecond.
  Result result_of(double seconds) const {
    Load load;
    const std::string port = std::to_string(acceptor_.local_endpoint().port());
    EXPECT_TRUE(Door::parse("tcp://127.0.0.1:" + port, load.door));
    load.methods = {{"sum", "[1]", 1}};
    load.warm_up = 0;
    load.seconds = seconds;
    Result result;
    std::string error;
    EXPECT_TRUE(run_load(load, result, error)) << error;
    return result;
  }

private:
  void serve(unsigned int answers, std::chrono::milliseconds stop) {
    tcp::socket socket = acceptor_.accept();
    boost::system::error_code error;
    std::string text;
    for (unsigned int n = 1;; ++n) {
      const std::size_t size =
          boost::asio::read_until(socket, boost::asio::dynamic_buffer(text), '\n', error);
      if (error || (n > answers && stop.count() == 0)) return;
      if (n == answers) std::this_thread::sleep_for(stop);
      const std::string answer = text.substr(0, text.find(",\"method\"")) + ",\"result\":1}\n";
      text.erase(0, size);
      boost::asio::write(socket, boost::asio::buffer(answer), error);
    }
  }

  boost::asio::io_context context_;
  tcp::acceptor acceptor_{context_, {boost::asio::ip::address_v4::loopback(), 0}};
  std::thread thread_;
};

}  // namespace

TEST(LoadTest, AStopIsChargedToAllCallsThatWereDueMeanwhile) {
  Result result = Scripted_Server(200, std::chrono::milliseconds(500)).result_of(1);
  EXPECT_EQ(1000u, result.all.latencies.count());
  EXPECT_TRUE(result.all.errors.empty());
  // With one call in flight only one met the stop itself; half a second's worth waited behind it.
  EXPECT_GT(result.all.latencies.quantile(0.9), 250'000'000u);
  EXPECT_FALSE(result.cut);
}

TEST(LoadTest, AConnectionThatClosesEndsItsCallsAndTheRun) {
  Result result = Scripted_Server(100, std::chrono::milliseconds(0)).result_of(60);
  EXPECT_TRUE(result.cut);
  EXPECT_EQ(1u, result.all.errors["closed"]);
}

TEST(LoadTest, AnswersAreFoundWhereverTheyAreCut) {
  const std::string answer = R"({"jsonrpc":"2.0","id":12,"result":"{\"id\":3}"})";
  ASSERT_EQ(47u, answer.size());
  const std::string start = answer.substr(0, 5), rest = answer.substr(5);
  struct Case {
    const char* url;
    std::string bytes;
    int status;
    std::string reply;
  } const cases[] = {
      {"tcp://h:1", answer + "\n", 200, ""},
      {"http://h:1", "HTTP/1.1 200 OK\r\ncontent-length: 47\r\n\r\n" + answer, 200, ""},
      {"http://h:1/x",
       "HTTP/1.1 503 Busy\r\nA: b\r\nTransfer-Encoding: chunked\r\n\r\n5\r\n" + start +
           "\r\n2a\r\n" + rest + "\r\n0\r\n\r\n",
       503, ""},
      {"ws://h:1", "\x01\x05" + start + "\x89\x02hi\x80\x2a" + rest, 200,
       std::string("\x8a\x82\0\0\0\0hi", 8)},
      {"ws://h:1", std::string("\x81\x7e\0\x2f", 4) + answer, 200, ""},
  };
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
    EXPECT_EQ(c.reply, found.reply);
    EXPECT_FALSE(found.answers_none);
  }
}

TEST(LoadTest, AnswersAreKnownByTheirIdAndErrorsByTheirCode) {
  unsigned long long id;
  int code;
  EXPECT_TRUE(read_answer(R"({"jsonrpc":"2.0","id":7,"result":"{\"id\":3}"})", id, code));
  EXPECT_EQ(7u, id);
  EXPECT_EQ(0, code);
  EXPECT_TRUE(read_answer(R"({"jsonrpc":"2.0","id":7,"error":{"code":-32601}})", id, code));
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
