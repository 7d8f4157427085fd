#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <initializer_list>
#include <stdexcept>
#include <string>

#include "http/admin.h"
#include "http/process_readings.h"
#include "http/prometheus.h"
#include "tests/support/log_capture.h"

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

}  // namespace
