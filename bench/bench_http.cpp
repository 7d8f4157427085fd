// Calls of the HTTP client over a kept connection, beside what the same bytes cost over a raw
// blocking socket: the caller's CPU time. The server, in a process of its own, answers fixed bytes.
// libcurl with the same parser stands beside them. And the memory that posting a large generated
// body takes.

#include <curl/curl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <yajl/yajl_parse.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "json_rpc/json_http_session.h"
#include "vexa/http_session_factory.h"
#include "vexa/json_reader.h"
#include "vexa/yajl_gen.h"

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

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
/// names: "/s", "/l", "/t", or for a POST the small one.
[[noreturn]] void serve(int listener) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::string small = response_of(small_body());
  const std::string large = response_of(large_body());
  const std::string texts = response_of(texts_body());
  std::vector<char> buffer(1u << 18);
  for (;;) {
    const int socket = ::accept(listener, nullptr, nullptr);
    if (socket == -1) continue;
    if (::fork() != 0) {
      ::close(socket);
      continue;
    }
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    std::string head;
    for (ssize_t got; (got = ::recv(socket, buffer.data(), buffer.size(), 0)) > 0;) {
      head.append(buffer.data(), got);
      const bool post = head.compare(0, 4, "POST") == 0;
      const char* const end = post ? "\r\n0\r\n\r\n" : "\r\n\r\n";
      const std::size_t length = std::strlen(end);
      if (head.size() < length || head.compare(head.size() - length, length, end) != 0) {
        if (post && head.size() > 4096) head.erase(4, head.size() - 4 - length);
        continue;
      }
      const char path = post ? 's' : head[5];
      const std::string& answer = path == 'l' ? large : path == 't' ? texts : small;
      head.clear();
      for (std::size_t sent = 0; sent < answer.size();) {
        const ssize_t n = ::send(socket, answer.data() + sent, answer.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) ::_exit(0);
        sent += n;
      }
    }
    ::_exit(0);
  }
}

unsigned short start_server() {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::listen(listener, 8) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    fail("listen");
  }
  const pid_t server = ::fork();
  if (server == -1) fail("fork");
  if (server == 0) {
    std::signal(SIGCHLD, SIG_IGN);
    serve(listener);
  }
  ::close(listener);
  return ntohs(address.sin_port);
}

int take(void*) { return 1; }
int take_flag(void*, int) { return 1; }
int take_text(void*, const unsigned char*, size_t) { return 1; }
int take_number(void*, const char*, size_t) { return 1; }

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
        socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
        buffer_(64 * 1024) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    if (::connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      fail("connect");
    }
  }
  ~Raw() { ::close(socket_); }
  Raw(const Raw&) = delete;
  Raw& operator=(const Raw&) = delete;

  void call() {
    if (::send(socket_, request_.data(), request_.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(request_.size())) {
      fail("send");
    }
    const yajl_callbacks callbacks = {take, take_flag, nullptr, nullptr, take_number, take_text,
                                      take, take_text, take,    take,    take};
    const yajl_handle parser = parses_ ? yajl_alloc(&callbacks, nullptr, nullptr) : nullptr;
    for (std::size_t got = 0; got < size_;) {
      const ssize_t length = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
      if (length <= 0) fail("recv");
      const char* text = buffer_.data();
      const std::size_t head =
          got == 0 ? std::string_view(text, length).find("\r\n\r\n") + 4 : std::size_t{0};
      got += length;
      if (parser != nullptr &&
          yajl_parse(parser, reinterpret_cast<const unsigned char*>(text + head), length - head) !=
              yajl_status_ok) {
        fail("yajl_parse");
      }
    }
    if (parser != nullptr) yajl_free(parser);
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
    if (curl_easy_perform(handle_) != CURLE_OK || !reader.end()) fail("curl");
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

double cpu_microseconds() {
  timespec time;
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return time.tv_sec * 1e6 + time.tv_nsec / 1e3;
}

double measure(unsigned int calls, const std::function<void()>& call) {
  const double before = cpu_microseconds();
  for (unsigned int i = 0; i < calls; ++i) call();
  return (cpu_microseconds() - before) / calls;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void compare(const char* name, unsigned short port, const char* path, const std::string& body,
             bool parses, unsigned int calls) {
  Raw raw(port, path, response_of(body).size(), parses);
  Curl curl(port, path);
  JSON_HTTP_Session ours(session_to(port), 0, -1);
  HTTP_Request request(HTTP_METHOD_GET, path);
  HTTP_Response response;
  std::vector<double> floors, mine, curls;
  for (int round = 0; round < 7; ++round) {  // side by side, so that noise meets all alike
    floors.push_back(measure(calls, [&] { raw.call(); }));
    mine.push_back(measure(calls, [&] {
      json_spirit::Value value;
      if (!ours.get(request, response, value)) fail("ours");
    }));
    curls.push_back(measure(calls, [&] { curl.call(); }));
  }
  std::printf("| %s | %.1f | %.1f | %.2f | %.2f |\n", name, median(floors), median(mine),
              median(mine) / median(floors), median(curls) / median(floors));
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
  if (!session.post(request, body, response, &value)) fail("post");
}

}  // namespace

int main() {
  // As in a process that has been running for long: what is freed stays with the heap. Otherwise
  // the pages of each reply's tree would come from the kernel anew, and cost more than all the
  // rest.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_TOP_PAD, 64 << 20);
  const unsigned short port = start_server();
  post(port, 1);
  const std::size_t idle = peak_kilobytes();
  post(port, 1u << 20);
  const std::size_t posting = peak_kilobytes();
  std::printf("| reply | floor, us | ours, us | ratio | libcurl with a parser |\n");
  std::printf("|---|---|---|---|---|\n");
  compare("200 bytes", port, "/s", small_body(), false, 5000);
  compare("1 MB, small records", port, "/l", large_body(), true, 30);
  compare("1 MB, 1 KB texts", port, "/t", texts_body(), true, 30);
  std::printf("\nPosting a generated body of 1 GB takes %.1f MB above idle.\n",
              (posting - idle) / 1024.0);
  return 0;
}
