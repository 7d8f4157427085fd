#include "http/admin.h"

#include <new>
#include <utility>

#include "http/prometheus.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace http {

namespace {

const char* const livez_path = "/livez";
const char* const readyz_path = "/readyz";
const char* const metrics_path = "/metrics";

Admin::Answer make_answer(int status, const char* type, std::string body) {
  Admin::Answer answer;
  answer.status = status;
  answer.body = std::move(body);
  answer.headers.put(HTTP_HEAD_CONTENT_TYPE, type);
  answer.headers.put(HTTP_HEAD_CACHE_CONTROL, "no-store");  // true of this moment alone
  answer.headers.put("X-Content-Type-Options", "nosniff");
  return answer;
}

Admin::Answer plain(int status, const std::string& line) {
  return make_answer(status, "text/plain; charset=utf-8", line + '\n');
}

}  // namespace

std::string Readiness::obstacle() const {
  if (stopping_) return "stopping";
  if (!configured_) return "starting: the configuration is not loaded yet";
  if (failures_ > 0) {
    return "bad configuration: " + std::to_string(failures_) + " of its records or options failed";
  }
  if (!pool_up_) return "starting: the thread pool is not up yet";
  if (!serving_) return "starting: the listeners are not up yet";
  return "";
}

Admin::Admin(const Readiness& readiness, std::function<std::string()> metrics)
    : readiness_(readiness), metrics_(std::move(metrics)) {}

bool Admin::has(std::string_view path) {
  return path == livez_path || path == readyz_path || path == metrics_path;
}

Admin::Answer Admin::answer(std::string_view method, std::string_view path) const {
  if (!has(path)) return plain(404, "not found");
  if (method != "GET" && method != "HEAD") {
    Answer refusal = plain(405, "only GET and HEAD");
    refusal.headers.put(HTTP_HEAD_ALLOW, "GET, HEAD");
    return refusal;
  }
  if (path == livez_path) return plain(200, "ok");
  return path == readyz_path ? readyz() : metrics();
}

Admin::Answer Admin::readyz() const {
  const std::string obstacle = readiness_.obstacle();
  return obstacle.empty() ? plain(200, "ok") : plain(503, obstacle);
}

Admin::Answer Admin::metrics() const {
  try {
    return make_answer(200, prometheus_type, metrics_());
  } catch (...) {
    VEXA_ERROR("The metrics cannot be had: %C\n", vexa::exception_text());
  }
  return plain(500, "the metrics cannot be had, see the log");
}

}  // namespace http
