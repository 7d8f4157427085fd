#include "json_rpc/json_rpc_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <numeric>

#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;
using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::StartsWith;

namespace {

/// The seconds that the process would sleep, and then does not; null: it does.
std::vector<long>* sleeps = nullptr;

class UtilsTest : public JSON_RPC_Fixture {
protected:
  UtilsTest() {
    ::setenv("JSON_RPC_REQUEST_TIMEOUT", "none", 1);  // only what is there at once counts
    sleeps = &slept_;
    peer_.on_send = [this](const JSON_RPC_Object_var& request) {
      ids_.push_back(request->id);
      if (ids_.size() < answered_) return;
      JSON_RPC_Response_Map::instance()->find(request->id)->handle_object(channel_, answer_);
    };
  }
  ~UtilsTest() override {
    sleeps = nullptr;
    ::unsetenv("JSON_RPC_REQUEST_TIMEOUT");
  }
  bool send(Value* response, json_spirit::Value_type type, int retry_seconds, int retries) {
    return send_rpc(channel_, "m", Value(), response, type, retry_seconds, retries);
  }
  void say(const Value& result) {
    answer_.reset(new JSON_RPC_Response(nullptr));
    static_cast<JSON_RPC_Response&>(*answer_).result = result;
  }

  const JSON_RPC_Channel_var channel_ = make_fake_channel(1, "a1");
  Fake_Channel& peer_ = fake(channel_);
  JSON_RPC_Object_var answer_;
  size_t answered_ = 1;  // the first attempt that the peer answers
  std::vector<Value> ids_;
  std::vector<long> slept_;
};

TEST_F(UtilsTest, EachLimitEndsTheRetriesByItsOwnRule) {
  answered_ = 1000;
  const struct {
    int retry_seconds, retries;
    size_t attempts;  // 0: as many as the seconds give
  } cases[] = {{-1, 8, 9}, {0, -1, 1}, {10, -1, 0}, {600, 2, 3}, {1, 9, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.retry_seconds) + ", " + std::to_string(c.retries));
    ids_.clear();
    slept_.clear();
    Value response("before");
    EXPECT_FALSE(send(&response, json_spirit::null_type, c.retry_seconds, c.retries));
    EXPECT_EQ(ETIME, errno);
    EXPECT_EQ(Value("before"), response);
    EXPECT_EQ("JSON-RPC 'm' failed after " + std::to_string(c.retries) + " retries.\n",
              log_.texts(LM_ERROR).back());
    EXPECT_TRUE(c.attempts == 0 || c.attempts == ids_.size()) << ids_.size();
    EXPECT_EQ(ids_.size(), slept_.size() + 1);
    const long sum = std::accumulate(slept_.begin(), slept_.end(), 0L);
    EXPECT_TRUE(c.attempts != 0 || (sum >= 10 && sum - slept_.back() < 10));
    for (size_t i = 0; i < slept_.size(); ++i) {
      EXPECT_LE(slept_[i], std::min(60L, 1L << i));
      EXPECT_GE(slept_[i], std::min(30L, ((1L << i) + 1) / 2));
    }
  }
}

TEST_F(UtilsTest, UnsentAndUnansweredAttemptsAreMadeAgainUnderAFreshId) {
  for (const int send_result : {0, -1}) {
    peer_.send_result = send_result;
    ids_.clear();
    answered_ = 2;
    say(5);
    Value response("before");
    EXPECT_EQ(send_result == 0, send(&response, json_spirit::int_type, -1, 1));
    EXPECT_EQ(send_result == 0 ? Value(5) : Value("before"), response);
    ASSERT_EQ(2u, ids_.size());
    EXPECT_NE(ids_.front(), ids_.back());
    EXPECT_THAT(log_.texts(LM_INFO).back(),
                AllOf(StartsWith("Retry(1) "), EndsWith(" at 1 second(s) later.\n")));
  }
}

TEST_F(UtilsTest, OnlyAResultOfTheExpectedKindIsTakenAndNoAnswerIsAskedForAgain) {
  const auto check = [this](json_spirit::Value_type expected, bool good, bool discarded,
                            const char* line) {
    ids_.clear();
    EXPECT_EQ(discarded, send(nullptr, expected, -1, -1)) << line;
    Value response("before");
    EXPECT_EQ(good, send(&response, expected, -1, -1)) << line;
    EXPECT_EQ(good, response != Value("before")) << line;
    EXPECT_EQ(2u, ids_.size()) << line;
    EXPECT_TRUE(good || log_.texts(LM_ERROR).back() == line) << line;
  };
  say("x");
  check(json_spirit::str_type, true, true, "");
  say("x");
  check(json_spirit::null_type, true, true, "");
  say(1.5);
  check(json_spirit::int_type, false, true, "JSON-RPC 'm' response expected type 5, got 6\n");
  answer_.reset(new JSON_RPC_Response_Error);
  static_cast<JSON_RPC_Response_Error&>(*answer_).message = "no";
  check(json_spirit::null_type, false, false,
        "JSON-RPC 'm' response error, code: -32603, msg: no.\n");
  answer_ = make_request("m", 1);
  check(json_spirit::null_type, false, false, "The response type '0' of JSON-RPC 'm' is invalid");
}

TEST_F(UtilsTest, CallsGoToTheAgentOrTheDefaultChannel) {
  say(true);
  const JSON_RPC_Channel_var other = make_fake_channel(2, "b1");
  for (const auto& channel : {channel_, other}) JSON_RPC_Channel_Map::instance()->insert(channel);
  const auto agent = [](const char* id, const char* method) {
    return send_rpc_to_agent(id, method, Value(), nullptr, json_spirit::null_type, -1, -1);
  };
  const auto global = [](const char* method, int retry_seconds) {
    return global_json_rpc(method, Value(), retry_seconds, nullptr, json_spirit::null_type, -1);
  };
  EXPECT_TRUE(agent("a1", "m"));
  EXPECT_FALSE(agent("b1", "m")) << "of another type";
  EXPECT_FALSE(global("m", -1)) << "there is none";
  EXPECT_EQ(2u, log_.count(", chn.get() is NULL:\n"));
  Global_JSON_RPC_Channel::instance(channel_);
  EXPECT_TRUE(global("m", -1));
  EXPECT_EQ(2u, ids_.size());
  answered_ = 1000;
  EXPECT_FALSE(global("m", 0)) << "the seconds stand third";
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec*) {
  if (sleeps == nullptr) return ::clock_nanosleep(CLOCK_REALTIME, 0, time, nullptr) == 0 ? 0 : -1;
  sleeps->push_back(time->tv_sec);
  return 0;
}
