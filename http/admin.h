#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "http/http_export.h"
#include "vexa/http_headers.h"

namespace http {

/// How far the process is with its start and its stop. The host sets it, on its main thread; any
/// thread asks.
class HTTP_EXPORT Readiness {
public:
  /// The configuration was read; so many records and options of it were bad.
  void configured(std::size_t failures) {
    failures_ = failures;
    configured_ = true;
  }
  /// The pool runs, or none is configured.
  void pool_up() { pool_up_ = true; }
  /// The listeners accept and the loops run.
  void serving() { serving_ = true; }
  /// No further requests are taken: for good.
  void stopping() { stopping_ = true; }

  /// Why no requests should come here now, in one line; "" when they may. Throws std::bad_alloc.
  std::string obstacle() const;

private:
  std::atomic<bool> configured_{false};
  std::atomic<std::size_t> failures_{0};
  std::atomic<bool> pool_up_{false};
  std::atomic<bool> serving_{false};
  std::atomic<bool> stopping_{false};
};

/// What those who look after the process ask it: /livez (200 while it answers at all), /readyz (200
/// while requests may come, else 503 and the reason) and /metrics. GET and HEAD.
class HTTP_EXPORT Admin {
public:
  struct Answer {
    int status;
    HTTP_Headers headers;  ///< beside Content-Length, Date and Connection
    std::string body;      ///< to HEAD that of GET: whoever sends it counts it and leaves it out
  };

  /// `metrics` makes the text of /metrics; both outlive this. Called by any thread, several at
  /// once.
  Admin(const Readiness& readiness, std::function<std::string()> metrics);

  /// Whether the path is one of the three.
  static bool has(std::string_view path);

  /// Answers a request; `path` is decoded and without query. 404 for other paths, 405 for other
  /// methods, 500 when the metrics cannot be had. Throws std::bad_alloc where there is no memory
  /// for an answer.
  Answer answer(std::string_view method, std::string_view path) const;

private:
  Answer readyz() const;
  Answer metrics() const;

  const Readiness& readiness_;
  const std::function<std::string()> metrics_;
};

}  // namespace http
