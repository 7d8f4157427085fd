#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "http/admin.h"
#include "http/discover.h"
#include "http/process_readings.h"
#include "http/prometheus.h"
#include "tests/support/json_rpc_fixture.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"
#include "vexa/json_reader.h"

using transport::Metrics;

namespace {

using namespace std::chrono_literals;

bool has_line(const std::string& text, const std::string& line) {
  return ('\n' + text).find('\n' + line + '\n') != std::string::npos;
}

TEST(PrometheusTest, ShowsWhatWasCountedInItsFormat) {
  Metrics metrics({"a\"b\\c\nd\xff"}, {"tcp://[::1]:1"});
  metrics.call(1);
  metrics.answered(1, 0, 300us);
  metrics.answered(1, -32007, 20s);
  metrics.complained(5);
  metrics.add(Metrics::BYTES_OUT, 0, 12345678901);
  metrics.add(Metrics::LATE_ANSWERS, 2);
  const std::string text = http::prometheus_text(metrics, {});
  const std::string method = "method=\"a\\\"b\\\\c\\nd\xef\xbf\xbd\"";
  for (const std::string& line : std::initializer_list<std::string>{
           "json_rpc_calls_total{" + method + "} 1",
           "json_rpc_calls_total{method=\"other\"} 0",
           "json_rpc_call_errors_total{" + method + "} 1",
           "json_rpc_call_duration_seconds_bucket{" + method + ",le=\"0.00025\"} 0",
           "json_rpc_call_duration_seconds_bucket{" + method + ",le=\"0.0005\"} 1",
           "json_rpc_call_duration_seconds_bucket{" + method + ",le=\"10\"} 1",
           "json_rpc_call_duration_seconds_bucket{" + method + ",le=\"+Inf\"} 2",
           "json_rpc_call_duration_seconds_sum{" + method + "} 20.0003",
           "json_rpc_call_duration_seconds_count{" + method + "} 2",
           "json_rpc_answers_total{code=\"result\"} 1",
           "json_rpc_answers_total{code=\"-32007\"} 1",
           "json_rpc_answers_total{code=\"-32603\"} 0",
           "json_rpc_answers_total{code=\"other\"} 1",
           "json_rpc_sent_bytes_total{listener=\"tcp://[::1]:1\"} 12345678901",
           "json_rpc_sent_bytes_total{listener=\"links\"} 0",
           "json_rpc_late_answers_total 2",
       }) {
    EXPECT_TRUE(has_line(text, line)) << line << "\nin\n" << text;
  }
  EXPECT_EQ(std::string::npos, text.find("-32008"));
  EXPECT_EQ(std::string::npos, text.find("count{method=\"other\"}"));
}

TEST(PrometheusTest, ReadsWhenItIsAskedAndLeavesOutWhatFails) {
  const Log_Capture log;
  double value = 0.5;
  const std::vector<http::Reading> readings = {
      {"bad", "B.", http::Reading::GAUGE, []() -> double { throw std::runtime_error("why"); }},
      {"good", "A \\ b.", http::Reading::GAUGE, [&] { return value; }}};
  const Metrics metrics;
  EXPECT_TRUE(has_line(http::prometheus_text(metrics, readings),
                       "# HELP good A \\\\ b.\n# TYPE good gauge\ngood 0.5"));
  value = 7;
  const std::string text = http::prometheus_text(metrics, readings);
  EXPECT_TRUE(has_line(text, "good 7"));
  EXPECT_EQ(std::string::npos, text.find("# HELP bad "));
  EXPECT_TRUE(log.contains(LM_WARNING, "'bad' cannot be read: why\n"));
}

TEST(PrometheusTest, ReadsTheProcessAsItIs) {
  const auto reading = [](const char* name) {
    for (const http::Reading& r : http::process_readings()) {
      if (r.name == name) return r.read();
    }
    return -1.0;
  };
  const double threads = reading("process_threads");
  const double open = reading("process_open_fds");
  const double now = static_cast<double>(std::time(nullptr));
  EXPECT_GE(threads, 1);
  EXPECT_GE(open, 3);
  EXPECT_LE(open, reading("process_max_fds"));
  EXPECT_GT(reading("process_resident_memory_bytes"), 1e6);
  EXPECT_GE(reading("process_virtual_memory_bytes"), reading("process_resident_memory_bytes"));
  EXPECT_NEAR(now, reading("process_start_time_seconds"), 600);
  EXPECT_GE(reading("process_cpu_seconds_total"), 0);
}

TEST(AdminTest, AnswersItsPathsToItsMethods) {
  http::Readiness readiness;
  const http::Admin admin(readiness, [] { return std::string("m 1\n"); });
  const struct {
    const char* method;
    const char* path;
    int status;
    const char* body;
  } cases[] = {{"GET", "/livez", 200, "ok\n"},
               {"HEAD", "/livez", 200, "ok\n"},
               {"GET", "/metrics", 200, "m 1\n"},
               {"POST", "/metrics", 405, "only GET and HEAD\n"},
               {"get", "/livez", 405, "only GET and HEAD\n"},
               {"GET", "/livez/", 404, "not found\n"},
               {"POST", "/", 404, "not found\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.method) + c.path);
    const http::Admin::Answer answer = admin.answer(c.method, c.path);
    EXPECT_EQ(c.status, answer.status);
    EXPECT_EQ(c.body, answer.body);
    EXPECT_EQ(c.status == 405, answer.headers.get(HTTP_HEAD_ALLOW) != nullptr);
    EXPECT_EQ(c.status != 404, http::Admin::has(c.path));
  }
  EXPECT_STREQ("text/plain; version=0.0.4; charset=utf-8",
               admin.answer("GET", "/metrics").headers.get(HTTP_HEAD_CONTENT_TYPE));
}

TEST(AdminTest, SurvivesMetricsThatFail) {
  const Log_Capture log;
  const http::Readiness readiness;
  const http::Admin admin(readiness, []() -> std::string { throw std::runtime_error("why"); });
  EXPECT_EQ(500, admin.answer("GET", "/metrics").status);
  EXPECT_TRUE(log.contains(LM_ERROR, "The metrics cannot be had: why\n"));
}

TEST(AdminTest, IsReadyBetweenTheStartAndTheStop) {
  http::Readiness readiness;
  const http::Admin admin(readiness, nullptr);
  const auto status = [&] { return admin.answer("GET", "/readyz").status; };
  EXPECT_EQ(503, status());
  readiness.serving();
  readiness.pool_up();
  EXPECT_EQ(503, status());
  readiness.configured(2);
  EXPECT_EQ("bad configuration: 2 of its records or options failed\n",
            admin.answer("GET", "/readyz").body);
  readiness.configured(0);
  EXPECT_EQ(200, status());
  readiness.stopping();
  EXPECT_EQ(503, status());
  EXPECT_EQ(200, admin.answer("GET", "/livez").status);
}

/// A folder with description files, and methods that say to come from libraries there.
class DiscoverTest : public JSON_RPC_Fixture {
protected:
  void describe(const std::string& name, const std::string& text) const {
    folder_.write(name + ".openrpc.json", text);
  }

  void add(const std::string& method, const std::string& library) const {
    struct Handler : JSON_RPC_Handler {
      int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
    };
    const std::string path = library.empty() ? "" : folder_ / ("lib" + library + ".so.1");
    JSON_RPC_Request_Map::instance()->insert(method, path, new Handler, [](void* object) {
      delete static_cast<JSON_RPC_Handler*>(object);
    });
  }

  static json_spirit::Value methods() {
    return http::openrpc_document("t", "1").get_obj().at("methods");
  }

  const Temporary_Directory folder_;
};

const char* const bare_own =
    R"({"name":"rpc.discover","params":[],"result":{"name":"result","schema":{"type":"object"}}})";

json_spirit::Value parsed(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_read(text.data(), text.size(), value)) << text;
  return value;
}

TEST_F(DiscoverTest, AnswersNamesAndWhatLibrariesTellOfTheirOwnMethods) {
  add("a", "one");
  add("b", "one");
  add("c", "two");
  add("d", "");
  describe("one",
           R"({"methods":[{"name":"a","params":[{"name":"p"}],"result":{"name":"r"},"x":1},
                          {"name":"c","params":[],"result":{"name":"not mine"}},
                          {"name":"not loaded","params":[],"result":{}}],
               "components":{"schemas":{"S":{"type":"null"},"T":1}}})");
  describe("two", R"({"methods":[],"components":{"schemas":{"S":{},"U":2},"tags":{}}})");
  ASSERT_EQ(0, http::serve_discovery("host", "1.2"));
  ASSERT_EQ(-1, http::serve_discovery("host", "1.2"));
  const JSON_RPC_Channel_var channel(new Fake_Channel);
  JSON_RPC_Handler* const handler = JSON_RPC_Request_Map::instance()->find("rpc.discover");
  ASSERT_NE(nullptr, handler);
  EXPECT_EQ(0, handler->handle_object(channel, make_notification("rpc.discover")));
  EXPECT_EQ(0, handler->handle_object(channel, make_request("rpc.discover", 1)));
  const Fake_Channel& fake = static_cast<const Fake_Channel&>(*channel);
  ASSERT_EQ(1u, fake.texts().size());
  EXPECT_EQ(parsed(R"({"jsonrpc":"2.0","id":1,"result":{"openrpc":"1.2.6",
      "info":{"title":"host","version":"1.2"},
      "methods":[{"name":"a","params":[{"name":"p"}],"result":{"name":"r"},"x":1},
                 {"name":"b","params":[],"result":{"name":"result","schema":{}}},
                 {"name":"c","params":[],"result":{"name":"result","schema":{}}},
                 {"name":"d","params":[],"result":{"name":"result","schema":{}}},)" +
                   std::string(bare_own) + R"(],
      "components":{"schemas":{"S":{"type":"null"},"T":1,"U":2},"tags":{}}}})"),
            parsed(fake.texts()[0]));
  EXPECT_EQ(2u, log_.count("is left out: another one has its name"));  // once each serve_discovery
}

TEST_F(DiscoverTest, LeavesTheBareNamesWhereADescriptionIsBad) {
  add("a", "one");
  const json_spirit::Value bare = methods();
  const std::string bad[] = {"",
                             "{",
                             "[]",
                             R"({"methods":{}})",
                             R"({"methods":[1]})",
                             R"({"methods":[{"params":[],"result":{}}]})",
                             R"({"methods":[{"name":"a","result":{}}]})",
                             R"({"methods":[{"name":"a","params":[]}]})",
                             R"({"methods":[],"components":{"schemas":[]}})",
                             R"({"methods":[]})" + std::string(1 << 20, ' ')};
  for (const std::string& text : bad) {
    SCOPED_TRACE(text.substr(0, 60));
    describe("one", text);
    const std::size_t before = log_.count("is bad: ");
    EXPECT_EQ(bare, methods());
    EXPECT_EQ(before + 1, log_.count("is bad: "));
  }
}

}  // namespace
