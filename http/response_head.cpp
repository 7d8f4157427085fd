#include "http/response_head.h"

#include <time.h>

#include <charconv>
#include <ctime>
#include <iterator>
#include <ostream>  // Beast needs it
// After it:
#include <boost/beast/http/status.hpp>

namespace http {

namespace {

/// The Date line, made once a second on each thread.
const std::string& date_line() {
  thread_local time_t made = 0;
  thread_local std::string line;
  timespec now;
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  if (now.tv_sec != made || line.empty()) {
    tm parts;
    char text[64];
    ::gmtime_r(&now.tv_sec, &parts);
    // The C locale's names: the process sets none.
    line.assign(text,
                std::strftime(text, sizeof text, "Date: %a, %d %b %Y %H:%M:%S GMT\r\n", &parts));
    made = now.tv_sec;
  }
  return line;
}

void append_number(std::string& text, std::uint64_t number) {
  char digits[20];
  text.append(digits, std::to_chars(digits, std::end(digits), number).ptr - digits);
}

/// The first line. The common one costs no look into tables.
void append_status(std::string& text, int status) {
  if (status == 200) {
    text.append("HTTP/1.1 200 OK\r\n");
    return;
  }
  text.append("HTTP/1.1 ");
  append_number(text, status);
  text.append(" ").append(reason_phrase(status)).append("\r\n");
}

void append_end(const Response_Head& head, std::string& text) {
  if (head.end == Body_End::LENGTH) {
    text.append("Content-Length: ");
    append_number(text, head.length);
    text.append("\r\n");
  } else if (head.end == Body_End::CHUNKED) {
    text += "Transfer-Encoding: chunked\r\n";
  }
}

}  // namespace

const char* reason_phrase(int status) {
  return boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(status))
      .data();
}

void Response_Head::append_to(std::string& text) const {
  append_status(text, status);
  if (headers != nullptr) {
    for (const HTTP_Headers::Field& field : *headers) {
      text.append(field.title()).append(": ").append(field.value).append("\r\n");
    }
  }
  if (!content_type.empty()) text.append("Content-Type: ").append(content_type).append("\r\n");
  append_end(*this, text);
  text += date_line();
  text += extra;
  if (!keep_alive) {
    text += "Connection: close\r\n";
  } else if (http_1_0) {
    text += "Connection: keep-alive\r\n";
  }
  text += "\r\n";
}

std::string error_body(int status, std::string_view message) {
  std::string body = "{\"error\":{\"code\":" + std::to_string(status) + ",\"message\":\"";
  body.append(message.empty() ? std::string_view(reason_phrase(status)) : message);
  return body + "\"}}\n";
}

}  // namespace http
