// Calls of the HTTP client over a kept connection, beside what the same bytes cost over a raw
// blocking socket: the caller's CPU time. The server, in a process of its own, answers fixed bytes.
// libcurl with the same parser stands beside them. And the memory that posting a large generated
// body takes.

#include <curl/curl.h>
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bench/bare_server.h"
#include "bench/bare_yajl.h"
#include "bench/give_up.h"
#include "bench/side_by_side.h"
#include "json_rpc/json_http_session.h"
#include "vexa/http_session_factory.h"
#include "vexa/json_reader.h"
#include "vexa/yajl_gen.h"

namespace {

std::string response_of(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nServer: floor\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\nConnection: keep-alive\r\n\r\n" + body;
}

/// About 200 bytes, and about 1 MB of records.
std::string small_body() {
  return R"({"jsonrpc":"2.0","id":"01234567-89ab-cdef-0123-456789abcdef","result":{"name":"a thing",)"
         R"("size":12345,"tags":["red","green","blue"],"on":true,"at":1700000000,"note":"twenty words"}})";
}
std::string large_body() {
  std::string body = "[";
  while (body.size() < 1u << 20) {
    body += body.size() == 1 ? "" : ",";
    body +=
        R"({"id":123456,"name":"record","on":true,"value":12.5,"tags":["a","b"],"note":"some text"})";
  }
  return body + "]";
}

std::string texts_body() {
  std::string body = "[";
  while (body.size() < 1u << 20) {
    body += (body.size() == 1 ? "\"" : ",\"") + std::string(1000, 't') + "\"";
  }
  return body + "]";
}

/// Answers each request, up to its blank line and the chunks behind it, with the body that its path
/// names: "/s", "/l", "/t", or for a POST the small one. One after the other.
[[noreturn]] void serve(int listener) {
  const std::string small = response_of(small_body());
  const std::string large = response_of(large_body());
  const std::string texts = response_of(texts_body());
  std::vector<char> buffer(1u << 18);
  std::map<int, std::string> heads;  // of the sockets; of a long request its beginning and its end
  Poll poll;
  poll.add(listener, listener);
  for (;;) {
    for (const unsigned int key : poll.wait()) {
      const int socket = static_cast<int>(key);
      if (socket == listener) {
        const int accepted = accept_from(listener);
        poll.add(accepted, accepted);
        continue;
      }
      const std::string_view bytes = receive(socket, buffer);
      std::string& head = heads[socket];
      head += bytes;
      if (bytes.empty()) {
        heads.erase(socket);
        ::close(socket);
        continue;
      }
      const bool post = head.compare(0, 4, "POST") == 0;
      const std::string end = post ? "\r\n0\r\n\r\n" : "\r\n\r\n";
      if (head.size() < end.size() ||
          head.compare(head.size() - end.size(), end.size(), end) != 0) {
        if (post && head.size() > 4096) head.erase(4, head.size() - 4 - end.size());
        continue;
      }
      const char path = post ? 's' : head[5];
      head.clear();
      send_all(socket, path == 'l' ? large : path == 't' ? texts : small);
    }
  }
}

/// The floor: a request is written, and as many bytes read as the answer is known to have, into
/// yajl with callbacks that do nothing where the answer is large.
class Raw {
public:
  Raw(unsigned short port, const char* path, std::size_t size, bool parses)
      : request_(std::string("GET ") + path +
                 " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: floor\r\n"
                 "Accept: application/json\r\n\r\n"),
        size_(size),
        parses_(parses),
        socket_(connect_to(port)),
        buffer_(64 * 1024) {}
  ~Raw() { ::close(socket_); }
  Raw(const Raw&) = delete;
  Raw& operator=(const Raw&) = delete;

  void call() {
    send_all(socket_, request_);
    std::optional<bare_yajl::Parser> parser;
    if (parses_) parser.emplace();
    for (std::size_t got = 0; got < size_;) {
      std::string_view text = receive(socket_, buffer_);
      if (text.empty()) give_up("the server closes");
      const bool first = got == 0;
      got += text.size();
      if (first) text.remove_prefix(text.find("\r\n\r\n") + 4);
      if (parser) parser->feed(text);
    }
  }

private:
  const std::string request_;
  const std::size_t size_;
  const bool parses_;
  const int socket_;
  std::vector<char> buffer_;
};

class Curl {
public:
  Curl(unsigned short port, const char* path) : handle_(curl_easy_init()) {
    curl_easy_setopt(handle_, CURLOPT_URL,
                     ("http://127.0.0.1:" + std::to_string(port) + path).c_str());
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &Curl::write);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, this);
  }
  ~Curl() { curl_easy_cleanup(handle_); }
  Curl(const Curl&) = delete;
  Curl& operator=(const Curl&) = delete;

  void call() {
    JSON_Reader reader;
    reader_ = &reader;
    if (curl_easy_perform(handle_) != CURLE_OK || !reader.end()) give_up("curl");
  }

private:
  static size_t write(char* data, size_t size, size_t count, void* self) {
    return static_cast<Curl*>(self)->reader_->read(data, size * count) ? size * count : 0;
  }

  CURL* const handle_;
  JSON_Reader* reader_ = nullptr;
};

HTTP_Session_var session_to(unsigned short port) {
  return HTTP_Session_Factory::create("127.0.0.1", port, false, nullptr, 3, nullptr, false, 10, 10,
                                      10, 0);
}

/// Calls one way or another; the CPU microseconds of one.
double measure(unsigned int calls, const std::function<void()>& call) {
  const double before = cpu_seconds(0);
  for (unsigned int i = 0; i < calls; ++i) call();
  return (cpu_seconds(0) - before) / calls * 1e6;
}

void compare(const Side_By_Side& table, const char* name, unsigned short port, const char* path,
             const std::string& body, bool parses, unsigned int calls) {
  Raw raw(port, path, response_of(body).size(), parses);
  Curl curl(port, path);
  JSON_HTTP_Session ours(session_to(port), 0, -1);
  HTTP_Request request(HTTP_METHOD_GET, path);
  HTTP_Response response;
  const auto call_ours = [&] {
    json_spirit::Value value;
    if (!ours.get(request, response, value)) give_up("ours");
  };
  table.measure({{name,
                  {[&] { return measure(calls, [&] { raw.call(); }); },
                   [&] { return measure(calls, call_ours); },
                   [&] { return measure(calls, [&] { curl.call(); }); }}}},
                7);
}

class Texts final : public JSON_Generator {
public:
  explicit Texts(unsigned long n) : n_(n) {}
  bool generate_i(YAJL_Gen& gen) override {
    const std::string text(1022, 'z');
    gen.array_open();
    for (unsigned long i = 0; i < n_; ++i) gen.literal(text);
    return gen.array_close();
  }

private:
  const unsigned long n_;
};

std::size_t peak_kilobytes() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, 6, "VmHWM:") == 0) return std::strtoul(line.c_str() + 6, nullptr, 10);
  }
  return 0;
}

void post(unsigned short port, unsigned long kilobytes) {
  JSON_HTTP_Session session(session_to(port), 0, -1);
  HTTP_Request request(HTTP_METHOD_POST, "/p");
  HTTP_Response response;
  Texts body(kilobytes);
  json_spirit::Value value;
  if (!session.post(request, body, response, &value)) give_up("post");
}

}  // namespace

int main() {
  // As in a process that has been running for long: what is freed stays with the heap. Otherwise
  // the pages of each reply's tree would come from the kernel anew, and cost more than all the
  // rest.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_TOP_PAD, 64 << 20);
  // On one core: that a call wakes the server on another would cost more than the small reply.
  const Bare_Server server(serve, 0);
  const unsigned short port = server.port();
  pin(0, 0);
  post(port, 1);
  const std::size_t idle = peak_kilobytes();
  post(port, 1u << 20);
  const std::size_t posting = peak_kilobytes();
  const Side_By_Side table("reply; CPU us of a call", Side_By_Side::LESS, "libcurl with a parser");
  compare(table, "200 bytes", port, "/s", small_body(), false, 5000);
  compare(table, "1 MB, small records", port, "/l", large_body(), true, 30);
  compare(table, "1 MB, 1 KB texts", port, "/t", texts_body(), true, 30);
  std::printf("\nPosting a generated body of 1 GB takes %.1f MB above idle.\n",
              (posting - idle) / 1024.0);
  return 0;
}
