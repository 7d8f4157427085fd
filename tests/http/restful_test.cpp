#include "http/restful.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "tests/http/recorded_reply.h"
#include "tests/support/gate.h"
#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"
#include "vexa/json_generator.h"
#include "vexa/on_exit.h"
#include "vexa/yajl_gen.h"

namespace {

using json_spirit::Value;

typedef std::function<int(JSON_RESTful_Channel&, Value&)> Work;

/// What a handler does and where, and who notes the creator's events.
struct Job {
  JSON_RESTful_Handler::CONCURRENCY where;
  Work work;
  std::string& events;
};

struct Worker : JSON_RESTful_Handler {
  explicit Worker(Job j) : job(std::move(j)) {}
  int init(int, char** argv) override { return job.events += std::string(argv[0]) + " ", 0; }
  int fini() override { return job.events += "fini ", 0; }
  CONCURRENCY concurrency() const override { return job.where; }
  int handle_request(JSON_RESTful_Channel* channel, Value& body) override {
    return job.work(*channel, body);
  }
  const Job job;
};

struct Worker_Creator : Object_Creator_T<JSON_RESTful_Handler> {
  explicit Worker_Creator(Job j) : job(std::move(j)) {}
  JSON_RESTful_Handler* create() override {
    if (argc_ == 0) return nullptr;
    auto* const worker = new Worker(job);
    worker->init(argc_, argv_);
    return worker;
  }
  void destroy(JSON_RESTful_Handler* handler) override {
    job.events += "destroy ";
    delete handler;
  }
  const Job job;
};

struct Answer {
  std::string text() const { return std::to_string(status) + " " + body; }

  int status;
  HTTP_Headers headers;
  std::string body;
  std::thread::id thread;
};

class RestfulTest : public ::testing::Test {
protected:
  ~RestfulTest() override {
    JSON_RPC_Thread_Pool_Handler::deactivate();
    JSON_RPC_Thread_Handler::wait_all(ACE_Time_Value(10));
  }

  /// Registers a creator under `uri`; one without an argument makes nothing.
  void add(const std::string& uri, Work work,
           JSON_RESTful_Handler::CONCURRENCY where = JSON_RESTful_Handler::INHERITED,
           const char* argument = "init") {
    auto creator = std::make_unique<Worker_Creator>(Job{where, std::move(work), events_});
    std::string word = argument != nullptr ? argument : "";
    char* words[] = {&word[0]};
    creator->init(argument != nullptr ? 1 : 0, words);
    ASSERT_EQ(0, creators_.insert(uri, "", creator.release(), [](void* p) {
      delete static_cast<Object_Creator_T<JSON_RESTful_Handler>*>(p);
    }));
  }
  size_t make() { return http::make_restful_handlers(creators_, handlers_); }

  /// Starts a request; the answer comes when it does.
  std::future<Answer> start(Http_Request_Head head, std::string body = "", size_t limit = 1000) {
    auto promise = std::make_shared<std::promise<Answer>>();
    std::future<Answer> answer = promise->get_future();
    EXPECT_TRUE(http::serve_restful(handlers_, head, body, limit,
                                    [promise](int status, HTTP_Headers headers, std::string text) {
                                      try {
                                        promise->set_value({status, std::move(headers),
                                                            std::move(text),
                                                            std::this_thread::get_id()});
                                      } catch (const std::future_error&) {
                                        ADD_FAILURE() << "answered twice";
                                      }
                                    }));
    return answer;
  }
  static Answer wait(std::future<Answer>&& answer) {
    if (answer.wait_for(gate_patience) == std::future_status::ready) return answer.get();
    ADD_FAILURE() << "no answer";
    return {0, {}, "", {}};
  }
  Answer ask(const std::string& uri, const std::string& body = "",
             const char* type = "application/json", size_t limit = 1000) {
    Http_Request_Head head = head_of(HTTP_METHOD_POST, uri);
    if (type != nullptr) head.request.headers().put(HTTP_HEAD_CONTENT_TYPE, type);
    return wait(start(std::move(head), body, limit));
  }
  /// What one handler answers.
  Answer answer_of(Work work, size_t limit = 1000) {
    handlers_.clear();
    handlers_.insert(
        "/w", "", new Worker({JSON_RESTful_Handler::REACTIVE, std::move(work), events_}), nullptr);
    return wait(start(head_of(HTTP_METHOD_GET, "/w"), "", limit));
  }

  std::string events_;
  Log_Capture log_;
  JSON_RESTful_Handler_Creator_Map creators_;
  JSON_RESTful_Request_Map handlers_;
};

int echo(JSON_RESTful_Channel& channel, Value& body) { return channel.send(body); }

TEST_F(RestfulTest, HandlersAreMadeOnceAndGivenBack) {
  add("/a", echo);
  add("/b", echo, JSON_RESTful_Handler::INHERITED, nullptr);
  add("/c/", echo);
  add("c", echo);
  EXPECT_EQ(2u, make());
  EXPECT_EQ(1u, log_.count("for '/b' made none"));
  EXPECT_EQ(1u, log_.count("'c': '/c' would do"));
  handlers_.clear();
  EXPECT_EQ("init init fini destroy fini destroy ", events_);
}

TEST_F(RestfulTest, TheLongestPrefixGetsTheBodyAndItsPartOfTheURI) {
  const auto part = [](JSON_RESTful_Channel& channel, Value&) {
    return channel.send(Value(channel.request()->uri() + channel.uri_off()));
  };
  add("/a", echo);
  add("/a/b", part);
  add("/\xc3\xa9 x", part);
  ASSERT_EQ(0u, make());
  EXPECT_EQ("[1,{\"x\":null}]", ask("/a/c", " [1, {\"x\": null}] ").body);
  EXPECT_EQ("null", ask("/a", "", nullptr).body);
  EXPECT_EQ("\"/c%20d?e=%2F\"", ask("/x/..//a/%62/c%20d?e=%2F").body);
  EXPECT_EQ("\"/1\"", ask("/%C3%a9%20x/1").body);
  Http_Request_Head head = head_of(HTTP_METHOD_GET, "/ab");
  std::string body = "kept";
  EXPECT_FALSE(http::serve_restful(handlers_, head, body, 1, [](int, HTTP_Headers, std::string) {
    ADD_FAILURE() << "answered";
  }));
  EXPECT_EQ("kept", body);
}

TEST_F(RestfulTest, OnlyJSONGetsToTheHandler) {
  add("/a", echo);
  ASSERT_EQ(0u, make());
  const struct {
    const char* type;
    const char* body;
    int status;
  } cases[] = {{"application/json", "{}", 200},
               {"Application/JSON ; charset=utf-8", "{}", 200},
               {"application/merge-patch+json", "{}", 200},
               {"+json", "{}", 415},
               {"text/plain", "{}", 415},
               {nullptr, "{}", 415},
               {"text/plain", "", 200},
               {"application/json", "{", 400},
               {"application/json", "{} {}", 400},
               {"application/json", " ", 400}};
  for (const auto& c : cases) {
    EXPECT_EQ(c.status, ask("/a", c.body, c.type).status) << (c.type ? c.type : "none") << c.body;
  }
  Http_Request_Head packed = head_of(HTTP_METHOD_POST, "/a");
  packed.request.headers().put(HTTP_HEAD_CONTENT_TYPE, "application/json");
  packed.request.headers().put(HTTP_HEAD_CONTENT_ENCODING, "gzip");
  EXPECT_EQ(415, wait(start(std::move(packed), "{}")).status);
}

/// Writes an open array, and ends it where it is told to.
struct Array_Generator : JSON_Generator {
  explicit Array_Generator(bool w) : whole(w) {}
  bool generate_i(YAJL_Gen& gen) override {
    return gen.array_open() && gen.integer(1) && whole && gen.array_close();
  }
  const bool whole;
};

/// One step of a handler; what the operation gave.
int step(JSON_RESTful_Channel& channel, yajl_gen_t*& gen, const std::string& what) {
  Array_Generator whole(true), half(false);
  const std::string text(20, 'x');
  CGI_Response& response = *channel.response();
  if (what == "value") return channel.send(Value(1));
  if (what == "text") return channel.send(Value(text));
  if (what == "nan") return channel.send(Value(0.0 / 0.0));
  if (what == "bytes") return channel.write("abc", 3) == 3 ? 0 : -1;
  if (what == "long") return channel.write(text.data(), 20) == 20 ? 0 : -1;
  if (what == "whole") return channel.send(whole);
  if (what == "half") return channel.send(half);
  if (what == "begin") {
    yajl_gen_t* const begun = channel.send_begin();
    return begun != nullptr ? (gen = begun, 0) : -1;
  }
  if (what == "open") return yajl_gen_array_open(gen);
  if (what == "string") {
    return yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(text.data()), 20);
  }
  if (what == "end") return channel.send_end();
  if (what == "404") return channel.send_error(404);
  if (what == "409") return channel.send_error(409, 7, "\"no\"");
  if (what == "e200") return channel.send_error(200, 7, "x");
  if (what == "errno") return errno = ENOSPC, channel.send_last_error(503, "full");
  if (what == "throw") throw std::runtime_error("oh");
  if (what == "field") return response.headers().put("a", "b\r\nc"), 0;
  return response.status(std::stoi(what)), 0;
}

/// A handler that takes the steps one by one, notes which failed why, and gives `result`.
Work take(const std::string& steps, std::string& failures, int result = 0) {
  return [=, &failures](JSON_RESTful_Channel& channel, Value&) {
    std::istringstream words(steps);
    yajl_gen_t* gen = nullptr;
    for (std::string word; words >> word;) {
      if (step(channel, gen, word) != 0) failures += std::string(::strerrorname_np(errno)) + " ";
    }
    return result;
  };
}

TEST_F(RestfulTest, EachWayOfAnsweringAnswersOnce) {
  const std::string broken = R"(500 {"error":{"code":500,"message":"Internal Server Error"}})";
  const struct {
    const char* steps;
    std::string answer;
    const char* failures;
    int result = 0;
  } cases[] = {
      {"value", "200 1", ""},
      {"201 value", "201 1", ""},
      {"204", "204 ", ""},
      {"204 value", "204 ", ""},
      {"bytes bytes", "200 abcabc", ""},
      {"whole", "200 [1]", ""},
      {"half value", "200 1", "EINVAL "},
      {"nan", broken, "EINVAL "},
      {"begin string end", "200 \"xxxxxxxxxxxxxxxxxxxx\"", ""},
      {"begin open end value", "200 1", "EINVAL "},
      {"begin open", broken, ""},
      {"end value", "200 1", "EINVAL "},
      {"begin begin bytes value string end", "200 \"xxxxxxxxxxxxxxxxxxxx\"",
       "EINPROGRESS EINPROGRESS EINPROGRESS "},
      {"bytes value begin", "200 abc", "EINPROGRESS EINPROGRESS "},
      {"value value 404 bytes begin end", "200 1", "EALREADY EALREADY EALREADY EALREADY EALREADY ",
       -1},
      {"bytes 404", R"(404 {"error":{"code":404,"message":"Not Found"}})", ""},
      {"begin open 404", R"(404 {"error":{"code":404,"message":"Not Found"}})", ""},
      {"409", R"(409 {"error":{"code":7,"message":"\"no\""}})", ""},
      {"e200", R"(500 {"error":{"code":7,"message":"x"}})", ""},
      {"errno", R"(503 {"error":{"code":28,"message":"full: No space left on device"}})", ""},
      {"99 value", "500 ", ""},
      {"field value", "500 ", ""},
      {"", broken, ""},
      {"bytes", broken, "", -1},
      {"throw", broken, ""},
      {"value throw", "200 1", ""}};
  for (const auto& c : cases) {
    std::string failures;
    EXPECT_EQ(c.answer, answer_of(take(c.steps, failures, c.result)).text()) << c.steps;
    EXPECT_EQ(c.failures, failures) << c.steps;
  }
  EXPECT_EQ(2u, log_.count("'/w' threw an exception: oh"));
  EXPECT_EQ(1u, log_.count("'/w' did not end its answer"));
}

TEST_F(RestfulTest, GuardsOfAHandlerMayCloseWhatIsNoLongerWritten) {
  const Answer answer = answer_of([](auto& channel, Value&) {
    YAJL_Gen gen(channel.send_begin(), false);
    const YAJL_Map_Guard map(gen);
    gen << "key";
    EXPECT_EQ(-1, channel.send_end());
    gen << "value";
    return channel.send_error(404);
  });
  EXPECT_EQ(R"(404 {"error":{"code":404,"message":"Not Found"}})", answer.text());
}

TEST_F(RestfulTest, AnotherBodyMayFollowOneThatFailed) {
  const Answer answer = answer_of([](auto& channel, Value&) {
    YAJL_Gen failed(channel.send_begin(), false);
    failed.map_open();
    EXPECT_FALSE(failed.null()) << "a key must come";
    EXPECT_EQ(-1, channel.send_end());
    YAJL_Gen another(channel.send_begin(), false);
    another << "ok";
    return channel.send_end();
  });
  EXPECT_EQ(R"(200 "ok")", answer.text());
}

TEST_F(RestfulTest, AnAnswerOverTheLimitIsAnErrorWhicheverWayItIsMade) {
  for (const char* const steps : {"text", "long", "begin string end"}) {
    std::string failures;
    EXPECT_EQ(500, answer_of(take(steps, failures), 19).status) << steps;
    EXPECT_EQ("EMSGSIZE ", failures) << steps;
    EXPECT_EQ(200, answer_of(take(steps, failures), 22).status) << steps;
  }
}

TEST_F(RestfulTest, FieldsAreTheHandlersButForTheConnectionsOwn) {
  const Answer answer = answer_of([](auto& channel, Value&) {
    HTTP_Headers& headers = channel.response()->headers();
    headers.put(HTTP_HEAD_CONTENT_TYPE, "application/problem+json");
    headers.put(HTTP_HEAD_CONTENT_LENGTH, "1");
    headers.put(HTTP_HEAD_TRANSFER_ENCODING, "chunked");
    return channel.send(Value(10));
  });
  ASSERT_EQ(1, std::distance(answer.headers.begin(), answer.headers.end()));
  EXPECT_STREQ("application/problem+json", answer.headers.get(HTTP_HEAD_CONTENT_TYPE));
}

TEST_F(RestfulTest, EveryHandlerRunsWhereItWantsTo) {
  add("/thread", echo, JSON_RESTful_Handler::THREAD);
  add("/pool", echo, JSON_RESTful_Handler::PROACTIVE);
  add("/here", echo, JSON_RESTful_Handler::REACTIVE);
  add("/same", echo, JSON_RESTful_Handler::INHERITED);
  ASSERT_EQ(0u, make());
  ASSERT_EQ(0, JSON_RPC_Thread_Pool_Handler::activate("test", 1, 10, 10));
  std::thread::id of_thread;
  for (const char* const uri : {"/thread", "/pool", "/here", "/same"}) {
    const Answer answer = ask(uri, "[7]");
    EXPECT_EQ("[7]", answer.body) << uri;
    const bool here = answer.thread == std::this_thread::get_id();
    EXPECT_EQ(uri == std::string("/here") || uri == std::string("/same"), here) << uri;
  }
}

TEST_F(RestfulTest, WhoeverCannotRunIsAnsweredAtOnce) {
  Gate started, go_on;
  const auto open = vexa::on_exit([&] { go_on.arrive(); });
  add(
      "/pool",
      [&](auto& channel, Value& body) {
        started.arrive();
        go_on.wait();
        return channel.send(body);
      },
      JSON_RESTful_Handler::PROACTIVE);
  add("/thread", echo, JSON_RESTful_Handler::THREAD);
  ASSERT_EQ(0u, make());
  EXPECT_EQ(503, ask("/pool").status);
  EXPECT_EQ(0u, log_.size()) << "no pool is nothing to complain about";
  {
    Failing_Thread_Creation none(0);
    const Answer refused = ask("/thread");
    EXPECT_EQ(503, refused.status);
    EXPECT_STREQ("1", refused.headers.get(HTTP_HEAD_RETRY_AFTER));
  }
  ASSERT_EQ(0, JSON_RPC_Thread_Pool_Handler::activate("test", 1, 1, 1));
  std::future<Answer> running = start(head_of(HTTP_METHOD_GET, "/pool"));
  ASSERT_TRUE(started.wait());
  std::future<Answer> waiting = start(head_of(HTTP_METHOD_GET, "/pool"));
  EXPECT_EQ(503, ask("/pool").status) << "the queue holds one";
  std::thread stop([] { JSON_RPC_Thread_Pool_Handler::deactivate(); });
  // The queue is closed before the running call is awaited, and dropped after.
  go_on.arrive();
  stop.join();
  EXPECT_EQ(200, wait(std::move(running)).status);
  const int status = wait(std::move(waiting)).status;
  EXPECT_TRUE(status == 503 || status == 200) << "the worker may have been quicker";
}

TEST_F(RestfulTest, AnAnswerComesThoughItsRequestIsLongGone) {
  Gate go_on;
  add(
      "/thread",
      [&](auto& channel, Value&) {
        go_on.wait();
        ACE_INET_Addr peer;
        EXPECT_EQ(0, channel.get_remote_addr(peer));
        EXPECT_EQ(4711, peer.get_port_number());
        return channel.send(Value(channel.request()->headers().get("X-Kept")));
      },
      JSON_RESTful_Handler::THREAD);
  ASSERT_EQ(0u, make());
  std::future<Answer> answer;
  {
    auto head = std::make_unique<Http_Request_Head>(head_of(HTTP_METHOD_GET, "/thread"));
    head->request.headers().put("X-Kept", "a value that is too long for a short string");
    head->remote.set(4711, "127.0.0.1");
    answer = start(std::move(*head));
  }
  go_on.arrive();
  EXPECT_EQ("\"a value that is too long for a short string\"", wait(std::move(answer)).body);
}

}  // namespace
