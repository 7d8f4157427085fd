// What a channel of the transport owes its peer when memory fails: one whole answer, an error, or a
// closed connection; and never anything half.

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_session.h"
#include "tests/faults/failing_memory.h"
#include "tests/transport/stream_fixture.h"
#include "transport/answer_endpoint.h"
#include "transport/inbound.h"
#include "transport/owed_request.h"
#include "vexa/yajl_gen.h"

namespace {

typedef json_spirit::Value Value;

const std::string long_text = "a text that is too long to be kept in place, by far";

/// Tells a loop at the cost of an allocation, as posting to one does.
class Posting_Wire final : public Wire {
public:
  void wake() override {
    post();
    woken = true;
  }
  void resume() override {
    post();
    resumed = true;
  }
  void close_soon(const char*) override {
    post();
    closes = true;
  }
  bool woken = false;
  bool resumed = false;
  bool closes = false;

private:
  static void post() { delete new int; }
};

/// A channel on such a wire, and the debt of its requests.
class Owing_Channel final : public Answer_Debt {
public:
  explicit Owing_Channel(Framing framing = Framing::LINES)
      : wire(std::make_shared<Posting_Wire>()),
        stream(new Stream_Channel(Limits(), Stream_Channel::Addresses(), wire)),
        channel(stream) {
    stream->self(channel);
    stream->id("9");
    stream->framing(framing);
  }
  ~Owing_Channel() override { stream->closed(); }

  void request_gone(const Value& id) noexcept override { stream->request_gone(id); }

  /// All that has been put in the line; also of a message that is still open.
  std::string output() { return drain(stream->outbox()); }
  /// The loop learns of it, at its next tick at the latest.
  bool closes() const { return wire->closes || stream->close_reason() != nullptr; }

  const std::shared_ptr<Posting_Wire> wire;
  Stream_Channel* const stream;
  const JSON_RPC_Channel_var channel;
};

/// A request of `channel` that awaits its answer, as a connection makes it.
JSON_RPC_Object_var owed(const std::shared_ptr<Owing_Channel>& channel, const Value& id) {
  Owed_Request* const request = new Owed_Request;
  const JSON_RPC_Object_var object(request);
  request->id = id;
  request->method = "m";
  channel->stream->await(id);
  request->owe(channel);
  return object;
}

std::string framed(const std::string& text, Framing framing) {
  if (framing == Framing::LINES) return text + "\n";
  return "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text;
}

std::string internal_error(const std::string& message) {
  return R"({"jsonrpc":"2.0","id":")" + long_text + R"(","error":{"code":-32603,"message":")" +
         message + "\"}}";
}

/// The peer of `channel` has got `whole`, or that there was an error, or nothing more than a part
/// before its connection closes.
void expect_settled(Owing_Channel& channel, const std::string& whole, Framing framing) {
  const std::string got = channel.output();
  if (channel.closes()) {
    EXPECT_TRUE(framed(whole, framing).compare(0, got.size(), got) == 0 ||
                got.find("-32603") != std::string::npos)
        << got;
    return;
  }
  EXPECT_TRUE(got == framed(whole, framing) ||
              got == framed(internal_error("Internal error"), framing) ||
              got == framed(internal_error("Internal error, forwarder is closed."), framing))
      << got.substr(0, 300);
  EXPECT_FALSE(channel.stream->outbox().owes());
}

/// A result of `count` long texts, under the long id, where it is asked for its whole text.
class Large_Answer final : public JSON_Generator {
public:
  explicit Large_Answer(int count) : count_(count) {}
  bool generate(yajl_gen_t* gen) override {
    YAJL_Gen out(gen, false);
    return generate_i(out);
  }
  bool generate_i(YAJL_Gen& out) override {
    out.map_open();
    out << "id" << long_text << "result";
    out.array_open();
    for (int i = 0; i < count_; ++i) out << long_text;
    out.array_close();
    return out.map_close();
  }
  std::string text() {
    std::string text;
    YAJL_String_Printer printer(text);
    JSON_RPC_Writer writer;
    writer.write(*this, printer);
    return text;
  }

private:
  const int count_;
};

constexpr int small = 2;
constexpr int large = 3000;  // far over what is held

class ChannelMemoryTest : public ::testing::Test {
protected:
  ~ChannelMemoryTest() override {
    JSON_RPC_Dispatcher::close_instance();
    JSON_RPC_Response_Map::close_instance();
  }
  JSON_RPC_Response_Map* const waiting_ = JSON_RPC_Response_Map::instance();
  JSON_RPC_Dispatcher* const dispatcher_ = JSON_RPC_Dispatcher::instance();
};

TEST_F(ChannelMemoryTest, AnAnswerIsSentOrAnErrorIsOrTheConnectionCloses) {
  enum How { OBJECT, GENERATED, BY_HAND };
  const struct {
    How how;
    int count;
  } cases[] = {{OBJECT, small}, {GENERATED, small}, {GENERATED, large}, {BY_HAND, large}};
  for (const auto& c : cases) {
    for (const Framing framing : {Framing::LINES, Framing::HEADERS}) {
      SCOPED_TRACE(::testing::Message() << "case " << c.how << ", " << c.count << ", framing "
                                        << static_cast<int>(framing));
      Large_Answer answer(c.count);
      const JSON_RPC_Object_var object = make_response(long_text, long_text);
      std::string whole = answer.text();
      if (c.how == OBJECT) {
        whole = R"({"jsonrpc":"2.0","id":")" + long_text + R"(","result":")" + long_text + "\"}";
      }
      at_every_allocation([&](Failing_Memory& memory) {
        const auto channel = std::make_shared<Owing_Channel>(framing);
        JSON_RPC_Object_var request = owed(channel, long_text);
        Stream_Channel& stream = *channel->stream;
        int result = -1;
        memory([&] {
          if (c.how == OBJECT) {
            result = stream.send(object);
          } else if (c.how == GENERATED) {
            result = stream.send(answer);
          } else if (yajl_gen_t* const gen = stream.send_begin()) {
            answer.generate(gen);
            result = stream.send_end();
          }
          request = JSON_RPC_Object_var(object);  // nobody has it any more
        });
        EXPECT_TRUE(result == 0 || memory.hit());
        expect_settled(*channel, whole, framing);
        if (channel->closes()) return;
        const JSON_RPC_Object_var again = owed(channel, long_text);
        EXPECT_EQ(0, stream.send(answer)) << "the next one is answered";
        EXPECT_EQ(framed(answer.text(), framing), channel->output());
        EXPECT_TRUE(channel->wire->woken) << "the loop has learnt of it by then";
      });
    }
  }
}

/// Reads what an agent answers, as its connection does.
class Reading_Agent final : private Inbound::Sink {
public:
  Reading_Agent() : owning_(std::make_shared<Owing_Channel>()) {}
  ~Reading_Agent() override { close(); }
  Stream_Channel& stream() { return *owning_->stream; }

  void read(const std::string& text) {
    try {
      std::size_t used;
      inbound_->feed(text.data(), text.size(), used);
    } catch (const std::bad_alloc&) {
      close();
    }
  }
  void close() {
    if (inbound_ != nullptr) inbound_->abandon_relay();
    stream().closed();
    inbound_.reset();
  }

private:
  void message(const JSON_RPC_Object_var& object, std::size_t) override {
    stream().answered(object);
  }
  bool overloaded() const override { return false; }

  const std::shared_ptr<Owing_Channel> owning_;
  std::unique_ptr<Inbound> inbound_{new Inbound(stream(), *this, true)};
};

TEST_F(ChannelMemoryTest, ARelayedAnswerIsSentOrAnErrorIsOrTheConnectionCloses) {
  const std::string answers[] = {
      R"({"id":1,"result":[1,")" + long_text + "\"]}",
      R"({"result":[1,")" + long_text + R"("],"id":1})",
      R"({"id":1,"error":{"code":5,"message":")" + long_text + "\"}}",
      R"({"id":1,"result":")" + std::string(200'000, 'x') + "\"}",
      R"({"id":1,"error":{"code":"broken"}})",
      "",  // closes instead
  };
  for (const std::string& answer : answers) {
    for (const Framing framing : {Framing::LINES, Framing::HEADERS}) {
      SCOPED_TRACE(answer.substr(0, 40));
      std::string whole;
      at_every_allocation([&](Failing_Memory& memory) {
        const auto requester = std::make_shared<Owing_Channel>(framing);
        const auto agent = std::make_unique<Reading_Agent>();
        JSON_RPC_Object_var request = owed(requester, long_text);
        const JSON_RPC_Object_var other(make_notification("m"));
        ASSERT_EQ(0, agent->stream().send(make_request("m", 7)));
        memory([&] {
          if (agent->stream().forward(requester->channel, request) == -1) {
            requester->stream->answer_error(request->id, JSON_RPC_INTERNAL_ERROR, nullptr);
          }
          request = other;
          if (answer.empty()) {
            agent->close();
          } else {
            agent->read(answer);
          }
        });
        if (whole.empty()) {  // of the run without a fault
          whole = requester->output();
          ASSERT_NE(std::string::npos, whole.find(long_text));
          if (framing == Framing::LINES) whole.pop_back();
          if (framing == Framing::HEADERS) whole.erase(0, whole.find('{'));
          return;
        }
        expect_settled(*requester, whole, framing);
        agent->close();
        EXPECT_EQ("", requester->output()) << "and not twice";
        EXPECT_FALSE(agent->stream().awaits_answers());
      });
    }
  }
}

TEST_F(ChannelMemoryTest, WhoeverIsPausedIsResumed) {
  at_every_allocation([&](Failing_Memory& memory) {
    const auto source = std::make_shared<Posting_Wire>();
    Outbox outbox(1000);
    bool wake;
    outbox.put(Outbox::CALL, Value(), "call", {}, wake);
    ASSERT_FALSE(outbox.may_grow(0, 1, source));
    std::vector<Output_Piece> batch;
    outbox.take(batch);
    memory([&] { outbox.sent(4, 0); });
    outbox.sent(0, 0);  // something else leaves
    EXPECT_TRUE(source->resumed);
  });
}

TEST_F(ChannelMemoryTest, CallsAreSentOrFailAndLeaveNothingBehind) {
  at_every_allocation([&](Failing_Memory& memory) {
    const auto channel = std::make_shared<Owing_Channel>();
    const JSON_RPC_Object_var call = make_request("m", long_text);
    int result = -1;
    memory([&] { result = channel->stream->send(call); });
    EXPECT_TRUE(result == 0 || (memory.hit() && errno == ENOMEM));
    EXPECT_EQ(result == 0, channel->stream->awaits_answers());
    EXPECT_EQ(result == 0, !channel->output().empty());
  });
}

}  // namespace
