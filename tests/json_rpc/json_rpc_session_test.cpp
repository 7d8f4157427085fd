#include "json_rpc/json_rpc_session.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <thread>

#include "json_rpc/json_rpc_generator.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;
using ::testing::ElementsAre;

namespace {

/// Seconds that the clock of waits is ahead. While `skipping` is set on a thread its waits take no
/// time: that clock jumps to their end.
std::atomic<time_t> clock_ahead{0};
thread_local bool skipping = false;

/// A peer that is asked through either form of request().
class Peer : public Fake_Channel {
public:
  std::function<void(const Value& id)> asked = [](const Value&) {};  ///< within send()
  Value id;                                                          ///< the last one
  int send(JSON_RPC_Object_var obj) override {
    asked(id = obj->id);
    return Fake_Channel::send(obj);
  }
  int send(JSON_Generator& gen) override {
    asked(id = dynamic_cast<JSON_RPC_Request_Generator&>(gen).id());
    return Fake_Channel::send(gen);
  }
};

JSON_RPC_Handler_var waiting(const Value& id) {
  return JSON_RPC_Response_Map::instance()->find(id);
}

/// 0 when somebody waited for it.
int answer(const Value& id, const Value& result) {
  const JSON_RPC_Object_var object(new JSON_RPC_Response(nullptr));
  object->id = id;
  static_cast<JSON_RPC_Response&>(*object).result = result;
  return JSON_RPC_Dispatcher::instance()->dispatch(JSON_RPC_Channel_ptr(), object);
}

enum Form { OBJECT, GENERATOR };

class SessionTest : public JSON_RPC_Fixture {
protected:
  ~SessionTest() override {
    clock_ahead = 0;
    ::unsetenv("JSON_RPC_REQUEST_TIMEOUT");
  }
  bool request(Form form, time_t timeout) {
    if (form == GENERATOR) return session_.request("m", nullptr, result_, timeout);
    return session_.request(make_request("m", 7), result_, timeout);
  }

  /// How many seconds a request that nobody answers waits.
  time_t waited(Form form, time_t timeout) {
    clock_ahead = 0;
    skipping = true;
    EXPECT_FALSE(request(form, timeout));
    skipping = false;
    return clock_ahead;
  }

  JSON_RPC_Response_Map* const map_ =
      JSON_RPC_Response_Map::instance();  // before there are threads
  JSON_RPC_Dispatcher* const dispatcher_ = JSON_RPC_Dispatcher::instance();
  Peer* const peer_ = new Peer;
  const JSON_RPC_Channel_var channel_{peer_};
  JSON_RPC_Session session_{channel_};
  const JSON_RPC_Object_var before_{new JSON_RPC_Response(nullptr)};
  JSON_RPC_Object_var result_ = before_;
};

TEST_F(SessionTest, EveryCallerGetsItsOwnAnswerFromTheReadingThread) {
  const JSON_RPC_Channel_var channel = make_fake_channel();
  JSON_RPC_Session session(channel);
  const auto calls = [&session](const std::string& caller) {
    for (int i = 0; i < 50; ++i) {
      const std::string method = caller + "." + std::to_string(i);
      JSON_RPC_Object_var result;
      ASSERT_TRUE(i % 2 == 0 ? session.request(JSON_RPC_Session::make_rpc_request(method, Value()),
                                               result, 20)
                             : session.request(method.c_str(), nullptr, result, -1));
      const Value& echo = static_cast<JSON_RPC_Response&>(*result).result;
      EXPECT_NE(std::string::npos, echo.get_str().find("\"method\":\"" + method + "\""));
    }
  };
  std::thread a(calls, "a");
  std::thread b(calls, "b");
  for (size_t i = 0; i < 100 && fake(channel).wait_for(i + 1); ++i) {
    const std::string text = fake(channel).texts()[i];
    EXPECT_EQ(0, answer(text.substr(text.find("\"id\":\"") + 6, 36), text));
  }
  a.join();
  b.join();
}

TEST_F(SessionTest, FailedCallLeavesItsIdOnlyInTheGeneratorForm) {
  ::setenv("JSON_RPC_REQUEST_TIMEOUT", "abc", 1);  // 0: over at once
  for (const Form form : {OBJECT, GENERATOR}) {
    log_.clear();
    EXPECT_FALSE(request(form, 0));
    EXPECT_EQ(ETIME, errno);
    EXPECT_EQ(form == OBJECT, waiting(peer_->id).null());
    EXPECT_EQ(form == OBJECT ? -1 : 0, answer(peer_->id, "late"));
    peer_->send_result = -1;
    EXPECT_FALSE(request(form, 5));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(form == OBJECT, waiting(peer_->id).null());
    peer_->send_result = 0;
    EXPECT_THAT(log_.texts(LM_ERROR),
                ElementsAre("Failed to get response, errno=62, Timer expired.\n",
                            "Failed to send request to channel, errno=32, Broken pipe.\n"));
  }
  EXPECT_EQ(before_.get(), result_.get());
  peer_->asked = [](const Value& id) { EXPECT_EQ(0, answer(id, 1)); };
  EXPECT_TRUE(request(OBJECT, 0)) << "what is there counts, however late";
}

TEST_F(SessionTest, OnlyTheObjectFormBoundsTheWait) {
  constexpr time_t century = 100L * 365 * 24 * 3600;
  const std::pair<const char*, time_t> cases[] = {
      {"", 60}, {"45s", 45}, {"-5", -5}, {"3600", 3600}, {"99999999999999999999", INT64_MAX}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.first);
    ::setenv("JSON_RPC_REQUEST_TIMEOUT", c.first, 1);
    time_t timeout = 1;
    JSON_RPC_Session::get_timeout_env(timeout);
    EXPECT_EQ(c.second, timeout);
    const time_t bounded = timeout > 600 || timeout < 0 ? 600 : timeout;
    EXPECT_EQ(bounded, waited(OBJECT, 0));
    EXPECT_EQ(bounded, waited(OBJECT, c.second));
    if (timeout > 0) {
      EXPECT_EQ(std::min(timeout, century), waited(GENERATOR, 0));
      continue;
    }
    std::future<int> reader;
    peer_->asked = [&](const Value& id) {
      reader = std::async(std::launch::async, answer, id, Value(1));
    };
    EXPECT_TRUE(request(GENERATOR, 0)) << "waits without end";
    peer_->asked = [](const Value&) {};
  }
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept {
  const int result = static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
  if (clock == CLOCK_MONOTONIC) now->tv_sec += clock_ahead;
  return result;
}

__attribute__((visibility("default"))) int pthread_cond_clockwait(pthread_cond_t* condition,
                                                                  pthread_mutex_t* mutex,
                                                                  clockid_t clock,
                                                                  const timespec* end) {
  typedef int (*Wait)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
  static const Wait wait = reinterpret_cast<Wait>(::dlsym(RTLD_NEXT, "pthread_cond_clockwait"));
  timespec real = *end;
  if (clock == CLOCK_MONOTONIC) real.tv_sec -= clock_ahead;
  if (!skipping) return wait(condition, mutex, clock, &real);
  timespec now;
  ::clock_gettime(clock, &now);
  clock_ahead += end->tv_sec - now.tv_sec + (end->tv_nsec > now.tv_nsec ? 1 : 0);
  return ETIMEDOUT;
}
}
