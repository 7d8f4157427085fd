#include "transport/stream_channel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "json_rpc/json_rpc_writer.h"
#include "tests/transport/stream_fixture.h"
#include "transport/loop_thread.h"

using namespace transport;

namespace {

typedef json_spirit::Value Value;

/// Writes a message by a function of the raw generator.
class Function_Generator final : public JSON_Generator {
public:
  typedef std::function<bool(yajl_gen_t*)> Function;
  explicit Function_Generator(Function function) : function_(std::move(function)) {}
  bool generate(yajl_gen_t* gen) override { return function_(gen); }
  bool generate_i(YAJL_Gen&) override { return false; }

private:
  const Function function_;
};

void text(yajl_gen_t* gen, const std::string& value) {
  yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(value.data()), value.size());
}

/// Begins {"jsonrpc":"2.0","id":`id`,"result":[ ; a negative id:
/// {"jsonrpc":"2.0","method":"n","params":[
void open_message(yajl_gen_t* gen, int id) {
  yajl_gen_map_open(gen);
  text(gen, "jsonrpc");
  text(gen, "2.0");
  text(gen, id < 0 ? "method" : "id");
  if (id < 0) {
    text(gen, "n");
  } else {
    yajl_gen_integer(gen, id);
  }
  text(gen, id < 0 ? "params" : "result");
  yajl_gen_array_open(gen);
}

void close_message(yajl_gen_t* gen) {
  yajl_gen_array_close(gen);
  yajl_gen_map_close(gen);
}

/// A whole message with `count` texts of 1,000 bytes.
Function_Generator message(int id, int count) {
  return Function_Generator([=](yajl_gen_t* gen) {
    open_message(gen, id);
    const std::string element(1000, 'x');
    for (int i = 0; i < count; ++i) text(gen, element);
    close_message(gen);
    return true;
  });
}

std::string answer_line(const std::string& id, const std::string& result) {
  return R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":)" + result + "}\n";
}

class StreamChannelTest : public Stream_Fixture {
protected:
  /// Sends on the channel; the errno, or 0.
  template <typename Message>
  static int send(Wired_Channel& wired, Message&& message) {
    errno = 0;
    return wired.channel->send(message) == 0 ? 0 : errno;
  }
};

TEST_F(StreamChannelTest, AValueThatCannotBeWrittenIsRefusedBeforeTheFirstByte) {
  Value deep;
  for (int i = 0; i < 125; ++i) deep = Value(json_spirit::Array{deep});
  for (const Value& bad :
       {Value(std::numeric_limits<double>::quiet_NaN()),
        Value(json_spirit::Array{std::numeric_limits<double>::infinity()}), deep}) {
    Wired_Channel wired(limits_);
    wired.stream->await("a");
    EXPECT_EQ(EINVAL, send(wired, make_response("a", bad)));
    EXPECT_EQ(error_line("\"a\"", -32603), wired.output());
    for (const JSON_RPC_Object_var& call : {make_notification("n"), make_request("m", 1)}) {
      static_cast<JSON_RPC_Request&>(*call).params = bad;
      EXPECT_EQ(EINVAL, send(wired, call));
    }
    EXPECT_EQ("", wired.output());
    EXPECT_EQ(EINVAL, send(wired, JSON_RPC_Object_var()));
  }
}

TEST_F(StreamChannelTest, TooMuchUnsentClosesForNotificationsRefusesCallsAndTakesAnswers) {
  limits_.max_queue = 1000;
  Wired_Channel wired(limits_);
  const JSON_RPC_Object_var large = make_notification(std::string(2000, 'n'));
  EXPECT_EQ(0, send(wired, large)) << "one message may always be queued";
  EXPECT_EQ(ENOBUFS, send(wired, make_request("m", 1)));
  EXPECT_EQ("", wired.wire->reason());
  wired.stream->await(1);
  EXPECT_EQ(0, send(wired, make_response(1, true)));
  EXPECT_EQ(ENOBUFS, send(wired, make_notification("n")));
  EXPECT_EQ("it does not take its notifications", wired.wire->reason());
  EXPECT_EQ(ENOBUFS, send(wired, make_notification("n")));
  EXPECT_EQ(1, wired.wire->closes) << "asked once";

  wired.stream->closed();
  EXPECT_EQ(HTTP_SOCK_STATE_CLOSED, wired.stream->response_state());
  EXPECT_EQ(ENOTCONN, send(wired, make_notification("n")));
  EXPECT_EQ(ENOTCONN, send(wired, make_response(1, true)));
  EXPECT_EQ(nullptr, wired.channel->send_begin());
  EXPECT_EQ(ENOTCONN, errno);
}

TEST_F(StreamChannelTest, AnOpenMessageBelongsToItsThread) {
  constexpr int rounds = 500;
  Wired_Channel wired(limits_);
  for (int i = 0; i < 2 * rounds; ++i) wired.stream->await(i);
  const auto answer = [&](int id, Gate* opened) {
    yajl_gen_t* const gen = wired.channel->send_begin();
    ASSERT_NE(nullptr, gen);
    open_message(gen, id);
    if (opened != nullptr) opened->meet();
    EXPECT_EQ(nullptr, wired.channel->send_begin());
    EXPECT_EQ(EBUSY, errno);
    yajl_gen_integer(gen, id);
    close_message(gen);
    EXPECT_EQ(0, wired.channel->send_end());
  };
  EXPECT_EQ(-1, wired.channel->send_end());
  EXPECT_EQ(EINVAL, errno);
  Gate both(2);
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      answer(t, &both);
      for (int i = 1; i < rounds; ++i) answer(2 * i + t, nullptr);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::string output = wired.output();
  for (int i = 0; i < 2 * rounds; ++i) {
    const std::string id = std::to_string(i);
    ASSERT_NE(std::string::npos, output.find(answer_line(id, "[" + id + "]"))) << i;
  }
  EXPECT_EQ(2 * rounds, std::count(output.begin(), output.end(), '\n'));
}

TEST_F(StreamChannelTest, LargeOutputBlocksItsProducerAndStaysBounded) {
  limits_.max_queue = 1u << 20;
  Wired_Channel wired(limits_);
  wired.stream->await(3);
  constexpr int count = 8000;
  std::atomic<int> result{-2};
  std::thread producer([&] {
    Function_Generator large = message(3, count);
    result = send(wired, large);
  });
  const auto deadline = std::chrono::steady_clock::now() + gate_patience;
  const auto late = [&] { return std::chrono::steady_clock::now() > deadline; };
  const std::size_t bound = limits_.queue_mark() + (160u << 10);
  while (wired.stream->outbox().unsent() <= limits_.queue_mark() && !late()) {
    std::this_thread::yield();
  }
  EXPECT_EQ(0u, wired.stream->outbox().pending());
  EXPECT_EQ(0, send(wired, make_notification("behind")));
  std::string output;
  while (result == -2 && !late()) {
    EXPECT_LT(wired.stream->outbox().unsent(), bound);
    output += wired.output();
  }
  producer.join();
  output += wired.output();
  EXPECT_EQ(0, result);
  const std::string tail = "xxx\"]}\n{\"jsonrpc\":\"2.0\",\"method\":\"behind\"}\n";
  ASSERT_GT(output.size(), tail.size());
  EXPECT_EQ(tail, output.substr(output.size() - tail.size()));
  EXPECT_EQ(answer_line("3", "[").size() - 2 + count * 1003 - 1 + tail.size() - 4, output.size());
}

TEST_F(StreamChannelTest, ALoopThreadNeverWaitsForRoom) {
  limits_.max_queue = 4000;
  Wired_Channel wired(limits_);
  wired.stream->await(3);
  const Loop_Thread_Mark mark;
  Function_Generator large = message(3, 200), other = message(-1, 1);
  EXPECT_EQ(0, send(wired, large)) << "the line was empty";
  EXPECT_EQ(ENOBUFS, send(wired, other));
  EXPECT_EQ("", wired.wire->reason());
  wired.output();
  EXPECT_EQ(0, send(wired, other));
}

TEST_F(StreamChannelTest, AStreamThatBreaksOffClosesOnceBytesOfItStandInTheLine) {
  limits_.stall_timeout = std::chrono::milliseconds(50);
  limits_.max_queue = 400000;
  const auto broken = [](int count, bool thrown) {
    return Function_Generator([=](yajl_gen_t* gen) {
      open_message(gen, 3);
      for (int i = 0; i < count; ++i) text(gen, std::string(1000, 'x'));
      if (thrown) throw std::runtime_error("broken generator");
      return false;
    });
  };
  const char* const reason = "an outgoing message broke off";
  for (const bool thrown : {false, true}) {
    Wired_Channel small(limits_), large(limits_);
    for (Wired_Channel* wired : {&small, &large}) wired->stream->await(3);
    Function_Generator few = broken(3, thrown), many = broken(80, thrown);
    EXPECT_EQ(EINVAL, send(small, few));
    EXPECT_EQ("", small.wire->reason());
    EXPECT_EQ("", small.output());
    EXPECT_EQ(0, send(small, make_response(3, true))) << "still awaited";
    EXPECT_EQ(EINVAL, send(large, many));
    EXPECT_EQ(reason, large.wire->reason());
  }
  EXPECT_EQ(2u, log_.count("A generator failed: broken generator"));

  Wired_Channel stalled(limits_);
  stalled.stream->await(3);
  Function_Generator endless = message(3, 1000);
  EXPECT_EQ(ETIMEDOUT, send(stalled, endless)) << "nobody takes what is in the line";
  EXPECT_EQ(reason, stalled.wire->reason());

  Wired_Channel gone(limits_);
  gone.stream->await(3);
  yajl_gen_t* const gen = gone.channel->send_begin();
  open_message(gen, 3);
  gone.stream->closed();
  close_message(gen);
  EXPECT_EQ(-1, gone.channel->send_end());
  EXPECT_EQ(ENOTCONN, errno);
}

TEST_F(StreamChannelTest, AStreamedAnswerToAnIdThatAwaitsNoneIsSwallowed) {
  for (const int count : {1, 200}) {
    Wired_Channel wired(limits_);
    Function_Generator late = message(3, count);
    EXPECT_EQ(EINVAL, send(wired, late));
    EXPECT_EQ("", wired.output());
    EXPECT_EQ("", wired.wire->reason());
  }
  EXPECT_EQ(2u, log_.count("Dropped an answer to id 3 of channel 9"));
}

}  // namespace
