#include "bench/load/dialect.h"

#include <strings.h>

#include <charconv>
#include <limits>

namespace {

constexpr std::size_t npos = std::string_view::npos;

/// A message a line.
class Lines final : public Dialect {
public:
  void add_call(std::string_view call, std::string& out) const override {
    out.append(call) += '\n';
  }
  Found find_answer(std::string_view bytes) const override {
    Found found;
    const std::size_t end = bytes.find('\n');
    if (end == npos) return found;
    found.used = end + 1;
    found.answer = bytes.substr(0, end);
    return found;
  }
  bool in_order() const override { return false; }
};

template <typename Number>
bool read_number(std::string_view text, Number& number, int base = 10) {
  return std::from_chars(text.data(), text.data() + text.size(), number, base).ec == std::errc();
}

/// A header's value in a head whose lines end in CR LF; empty when it is not there.
std::string_view header(std::string_view head, std::string_view name) {
  for (std::size_t at = head.find("\r\n"); at != npos; at = head.find("\r\n", at)) {
    at += 2;
    const std::string_view line = head.substr(at, head.find("\r\n", at) - at);
    if (line.size() <= name.size() || line[name.size()] != ':') continue;
    if (::strncasecmp(line.data(), name.data(), name.size()) != 0) continue;
    const std::size_t value = line.find_first_not_of(" \t", name.size() + 1);
    return value == npos ? std::string_view() : line.substr(value);
  }
  return std::string_view();
}

/// Kept alive, HTTP/1.1; requests may be sent before earlier ones are answered.
class Http final : public Dialect {
public:
  explicit Http(const Door& door)
      : head_("POST " + door.path + " HTTP/1.1\r\nHost: " + door.host + ":" + door.port +
              "\r\nContent-Type: application/json\r\nContent-Length: ") {}

  void add_call(std::string_view call, std::string& out) const override {
    out.append(head_).append(std::to_string(call.size())).append("\r\n\r\n").append(call);
  }

  Found find_answer(std::string_view bytes) const override {
    Found found;
    const std::size_t end = bytes.find("\r\n\r\n");
    if (end == npos) return found;
    const std::string_view head = bytes.substr(0, end + 2);
    const std::size_t body = end + 4;
    std::size_t length;
    if (head.substr(0, 9) != "HTTP/1.1 " || !read_number(head.substr(9), found.status)) {
      found.broken = true;
    } else if (found.status == 204 || found.status == 202) {
      found.used = body;
    } else if (header(head, "Transfer-Encoding") == "chunked") {
      find_chunks(bytes, body, found);
    } else if (!read_number(header(head, "Content-Length"), length)) {
      found.broken = true;
    } else if (bytes.size() - body >= length) {
      found.answer = bytes.substr(body, length);
      found.used = body + length;
    }
    return found;
  }
  bool in_order() const override { return true; }

private:
  static void find_chunks(std::string_view bytes, std::size_t at, Found& found) {
    for (std::size_t size = 1; size > 0;) {
      const std::size_t line = bytes.find("\r\n", at);
      if (line == npos) return;
      found.broken =
          !read_number(bytes.substr(at, line - at), size, 16) || size > bytes.max_size() / 2;
      if (found.broken || bytes.size() < line + 2 + size + 2) return;
      found.answer.append(bytes.substr(line + 2, size));
      at = line + 2 + size + 2;
    }
    found.used = at;
  }

  const std::string head_;
};

/// The number behind the first `key`, unless `before` comes first.
template <typename Number>
bool number_behind(std::string_view text, std::string_view key, Number& number) {
  const std::size_t at = text.find(key);
  return at != npos && read_number(text.substr(at + key.size()), number);
}

}  // namespace

std::unique_ptr<Dialect> make_dialect(const Door& door) {
  if (door.kind == Door::HTTP) return std::make_unique<Http>(door);
  return std::make_unique<Lines>();
}

bool read_answer(std::string_view answer, unsigned long long& id, int& code) {
  code = 0;
  const std::size_t at = answer.find("\"id\":");
  if (at == npos || !read_number(answer.substr(at + 5), id)) return false;
  const std::size_t comma = answer.find(',', at);
  if (comma == npos) return false;
  const std::string_view rest = answer.substr(comma + 1);
  if (rest.rfind("\"result\":", 0) == 0) return true;
  return rest.rfind("\"error\":", 0) == 0 && number_behind(rest, "\"code\":", code);
}
