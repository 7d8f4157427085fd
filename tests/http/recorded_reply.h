#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "http/http_exchange.h"
#include "http/target.h"

/// Keeps the one answer that it gets, a file's bytes included.
class Recorded_Reply final : public Http_Reply {
public:
  void respond(int status, const HTTP_Headers& headers, std::string body) override {
    EXPECT_EQ(0, status_) << "answered twice";
    status_ = status;
    headers_ = headers;
    body_ = std::move(body);
  }
  void respond_file(int status, const HTTP_Headers& headers, int descriptor, std::uint64_t offset,
                    std::uint64_t length) override {
    std::string bytes(length, '?');
    EXPECT_EQ(static_cast<ssize_t>(length), ::pread(descriptor, &bytes[0], length, offset));
    EXPECT_EQ(0, ::close(descriptor));
    respond(status, headers, std::move(bytes));
  }

  int status() const { return status_; }
  const std::string& body() const { return body_; }
  template <typename Name>  // a number or a text
  std::string header(Name name) const {
    const char* const value = headers_.get(name);
    return value != nullptr ? value : "none";
  }

private:
  int status_ = 0;
  HTTP_Headers headers_;
  std::string body_;
};

/// The head of a request for `target`, which must be a good one.
inline Http_Request_Head head_of(int method, const std::string& target) {
  Http_Request_Head head;
  head.request.method(method);
  head.request.uri(target);
  http::Target parsed;
  EXPECT_EQ(0, http::parse_target(target, parsed)) << target;
  head.path = parsed.path;
  head.query = parsed.query;
  return head;
}
