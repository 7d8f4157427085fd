#include <ace/Lock_Adapter_T.h>
#include <ace/Thread_Mutex.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <thread>

#include "json_rpc/json_rpc_forward_map.h"
#include "json_rpc/json_rpc_reader.h"
#include "tests/support/in_pieces.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

/// Guards what goes to a requester.
class Io_Lock : public ACE_Lock_Adapter<ACE_Thread_Mutex> {
public:
  /// Whether this thread, or another, could take it now.
  bool is_free() {
    if (tryacquire() == -1) return false;
    release();
    return true;
  }
};

/// Requests of others went out over this one; its answers are theirs.
class Forwarder : public Fake_Channel {
public:
  int get_forward_entry(int id, JSON_RPC_Channel_ptr& requester, Value& original) override {
    JSON_RPC_Forward_Map::data_type data;
    if (entries.get(id, data) == -1) return -1;
    original = std::move(data.first);
    requester = data.second;
    return 0;
  }

  JSON_RPC_Forward_Map entries;
};

/// Asked something and waits for the answer. Its lock goes with it, so it must be free by then.
class Requester : public Fake_Channel {
public:
  Requester() { lock = &io_lock; }
  ~Requester() override { EXPECT_TRUE(io_lock.is_free()) << "destroyed while its lock is held"; }
  yajl_gen_t* send_begin() override {
    EXPECT_TRUE(lock == nullptr || !io_lock.is_free());
    return Fake_Channel::send_begin();
  }
  int send_end() override {
    EXPECT_TRUE(lock == nullptr || !io_lock.is_free());
    return Fake_Channel::send_end();
  }

  Io_Lock io_lock;
};

/// Reads what `forwarder` receives. Its requests 1 to 7 came from the requester, 7 under id "x".
class RelayTest : public ::testing::Test {
protected:
  RelayTest() : requester_(new Requester) { new_forwarder(); }
  ~RelayTest() override { reader_.reset(); }

  Requester& requester() { return static_cast<Requester&>(*requester_); }
  JSON_RPC_Forward_Map& entries() { return static_cast<Forwarder&>(*forwarder_).entries; }

  void new_forwarder() {
    forwarder_ = JSON_RPC_Channel_var(new Forwarder);
    for (int id = 1; id < 7; ++id) entries().put(id, requester_);
    entries().put("x", requester_);
  }
  void open() {
    if (reader_ == nullptr) reader_ = std::make_unique<JSON_RPC_Reader>();
    reader_->mode(JSON_RPC_Reader::FORWARD_RESPONSE_MODE);
    ASSERT_TRUE(reader_->open());
    reader_->channel(forwarder_);
  }
  bool read(const std::string& text) { return reader_->read(text.data(), text.size()); }
  /// The whole text; whether it was accepted.
  bool relay(const std::string& text) {
    open();
    return read(text) && reader_->read(nullptr, 0);
  }
  bool has_entry_7() {
    JSON_RPC_Forward_Map::data_type data;
    return entries().get(7, data) == 0;
  }
  /// Whether another thread could write now.
  bool lock_is_free() {
    bool free = false;
    std::thread([&] { free = requester().io_lock.is_free(); }).join();
    return free;
  }

  Log_Capture log_;
  JSON_RPC_Channel_var requester_;
  JSON_RPC_Channel_var forwarder_;
  std::unique_ptr<JSON_RPC_Reader> reader_;
};

std::string arrays(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST_F(RelayTest, AnswersAreCopiedUnderTheRequestersId) {
  const std::pair<std::string, std::string> cases[] = {
      {R"({"id":7,"result":false,"jsonrpc":"2.0"})",
       R"({"id":"x","result":false,"jsonrpc":"2.0"})"},
      {R"({"id":7,"result":[-0,1e400]})", R"({"id":"x","result":[-0,1e400]})"},
      {R"({"id":7,"result":{"b":[1,{"id":9}],"b":{"a":[]}}})",
       R"({"id":"x","result":{"b":[1,{"id":9}],"b":{"a":[]}}})"},
      // Members that follow are not looked at.
      {R"({"id":7,"result":1,"foo":{"result":[null]},"id":[{}],"error":true})",
       R"({"id":"x","result":1,"foo":{"result":[null]},"id":[{}],"error":true})"},
      {"{\"id\":7,\"result\":{\"\xC0\xAF\":\"\\udc00\xE2\x82\xAC\"}}",
       "{\"id\":\"x\",\"result\":{\"\uFFFD\uFFFD\":\"\uFFFD\uFFFD\uFFFD\u20AC\"}}"},
      {R"({"id":7,"result":)" + arrays(124) + "}", R"({"id":"x","result":)" + arrays(124) + "}"},
  };
  for (const auto& c : cases) {
    const std::string sent = however_cut(c.first, [&](const Pieces& pieces) {
      new_forwarder();
      requester().forget();
      open();
      for (const auto& piece : pieces) EXPECT_TRUE(reader_->read(piece.data(), piece.size()));
      EXPECT_TRUE(reader_->read(nullptr, 0));
      EXPECT_EQ(JSON_RPC_Reader::STATE_FORWARDING, reader_->state());
      EXPECT_TRUE(reader_->object().get() == nullptr && reader_->request_channel().null());
      EXPECT_TRUE(requester().io_lock.is_free() && !has_entry_7());
      EXPECT_EQ(1u, requester().count());
      return requester().count() > 0 ? requester().texts()[0] : "";
    });
    EXPECT_EQ(c.second, sent);
  }
  new_forwarder();
  requester().forget();
  requester().lock = nullptr;  // for channels that need none
  EXPECT_TRUE(relay(R"({"id":7,"result":1})"));
  EXPECT_EQ(std::vector<std::string>{R"({"id":"x","result":1})"}, requester().texts());
  EXPECT_EQ(0u, log_.size());
}

TEST_F(RelayTest, WhatIsNoAnswerToARelayedRequestIsAnObject) {
  const struct {
    const char* text;
    int type;
  } cases[] = {
      {R"({"result":1,"id":7})", JSON_RPC_Object::TYPE_RESPONSE},
      // Its low 32 bits are another's id.
      {R"({"id":-4294967289,"result":1})", JSON_RPC_Object::TYPE_RESPONSE},
      {R"({"id":7,"error":{"code":1,"message":"m"}})", JSON_RPC_Object::TYPE_RESPONSE_ERROR},
      {R"({"id":7,"method":"m","params":[]})", JSON_RPC_Object::TYPE_REQUEST},
  };
  for (const auto& c : cases) {
    open();
    reader_->request_channel(requester_);  // for params handlers: nothing is sent over it
    EXPECT_TRUE(read(c.text)) << c.text;
    ASSERT_TRUE(reader_->object().get() != nullptr) << c.text;
    EXPECT_EQ(c.type, reader_->object()->type) << c.text;
    EXPECT_EQ(JSON_RPC_Reader::STATE_PARSING, reader_->state());
    EXPECT_TRUE(reader_->request_channel() == requester_);
  }
  EXPECT_FALSE(relay(R"({"id":7,"method":"m","result":1})")) << "two kinds in one";
  open();
  reader_->mode(JSON_RPC_Reader::OBJECT_MODE);
  EXPECT_TRUE(read(R"({"id":7,"result":1})"));
  EXPECT_TRUE(reader_->object().get() != nullptr);
  EXPECT_EQ(0u, requester().count());
  EXPECT_TRUE(requester().io_lock.is_free() && has_entry_7());

  open();
  forwarder_ = JSON_RPC_Channel_var();
  EXPECT_TRUE(read(R"({"id":1,"result":1})"));
  EXPECT_TRUE(reader_->object().get() != nullptr) << "the channel that is read is gone";
}

TEST_F(RelayTest, AnAnswerToWhoIsGoneIsSwallowed) {
  requester_ = JSON_RPC_Channel_var();
  EXPECT_TRUE(relay(R"({"id":7,"result":[[1],{"a":"b"}],"more":{"id":false}})"));
  EXPECT_EQ(JSON_RPC_Reader::STATE_FORWARDING, reader_->state());
  EXPECT_TRUE(reader_->object().get() == nullptr && reader_->request_channel().null());
  EXPECT_EQ(std::vector<std::string>{"Abort forwarding JSON-RPC response, requester is gone.\n"},
            log_.texts(LM_ERROR));
  EXPECT_FALSE(relay(R"({"id":6,"result":)" + arrays(125) + "}")) << "too deep all the same";
  EXPECT_TRUE(relay(R"({"method":"m"})") && reader_->object().get() != nullptr);
}

TEST_F(RelayTest, AStartOrAnEndThatFailsFailsTheRelayUnlessThePeerWasAnswered) {
  requester().refuse_stream = true;
  EXPECT_FALSE(relay(R"({"id":5,"result":1})"));
  EXPECT_TRUE(lock_is_free() && reader_->request_channel().null());
  requester().refuse_stream = false;
  log_.clear();
  requester().send_end_result = -1;
  for (const bool answered : {true, false}) {
    requester().response = answered ? HTTP_SOCK_STATE_CONTENT_SENT : HTTP_SOCK_STATE_CONNECTED;
    EXPECT_EQ(answered, relay(answered ? R"({"id":7,"result":1})" : R"({"id":6,"result":{}})"));
    EXPECT_TRUE(lock_is_free() && reader_->request_channel().null());
    EXPECT_EQ(answered, log_.texts(LM_ERROR).empty());
  }
  EXPECT_EQ("Failed to forward response: failed to send end to channel.\n",
            log_.texts(LM_ERROR).front());
}

TEST_F(RelayTest, AnAbandonedRelayFreesTheLockBeforeItsOwner) {
  const std::function<void()> ways[] = {[this] { reader_->clear(); }, [this] { reader_->close(); },
                                        [this] { EXPECT_TRUE(reader_->open()); },
                                        [this] { reader_.reset(); }};
  for (const bool last_owner : {false, true}) {
    for (const auto& abandon : ways) {
      for (const char* const rest : {"[", "1,", "1,\"a\":{", "[1,]}"}) {
        bool destroyed = false;
        requester_ = JSON_RPC_Channel_var(new Requester);
        requester().destroyed = &destroyed;
        open();
        read("{\"id\":" + std::to_string(entries().put("x", requester_)) + ",\"result\":" + rest);
        EXPECT_FALSE(lock_is_free()) << rest;
        if (last_owner) requester_ = JSON_RPC_Channel_var();
        EXPECT_FALSE(destroyed) << "a relay holds its requester";
        abandon();  // Requester sees to it that its lock is free when it goes
        EXPECT_EQ(last_owner, destroyed) << rest;
        if (reader_ != nullptr) read(",2],\"more\":{}}");
        EXPECT_TRUE(last_owner || (lock_is_free() && requester().count() == 0)) << rest;
        requester_ = JSON_RPC_Channel_var();
      }
    }
  }
}

TEST_F(RelayTest, TooDeepAnAnswerEndsTheRelayWithoutDrivingTheGeneratorOn) {
  for (const std::string& text : {R"({"id":7,"result":)" + std::string(100000, '['),
                                  R"({"id":6,"result":1,"more":)" + arrays(125) + "}",
                                  R"({"id":5,"result":)" + arrays(125) + "}"}) {
    EXPECT_FALSE(relay(text));
    EXPECT_EQ(JSON_RPC_Reader::ERROR_DEPTH, reader_->error());
    EXPECT_FALSE(lock_is_free()) << "its owner has yet to abandon it";
    reader_->close();
    EXPECT_TRUE(lock_is_free());
  }
  EXPECT_EQ(0u, requester().count());
}

}  // namespace
