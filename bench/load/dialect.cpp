#include "bench/load/dialect.h"

#include <strings.h>

#include <charconv>
#include <cstdint>
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

/// A call a frame (RFC 6455). An answer may come in several, with control frames between them.
class Websocket final : public Dialect {
public:
  void add_call(std::string_view call, std::string& out) const override {
    add_frame(text_kind, call, out);
  }
  Found find_answer(std::string_view bytes) const override {
    Found found;
    for (bool in_message = false; bytes.size() >= 2;) {
      const unsigned char first = bytes[0], second = bytes[1];
      const unsigned int kind = first & 0x0f;
      const std::size_t head = second == 127 ? 10 : second == 126 ? 4 : 2;
      found.broken = (first & 0x70) != 0 || second > 127;
      if (found.broken) return found;
      if (bytes.size() < head) break;
      const std::uint64_t length = head == 2 ? second : big_endian(bytes.substr(2, head - 2));
      if (bytes.size() - head < length) break;
      const std::string_view content = bytes.substr(head, length);
      bytes.remove_prefix(head + length);
      found.used += head + length;
      if (kind == ping_kind) add_frame(pong_kind, content, found.reply);
      found.answers_none = (kind & control_bit) != 0;
      if (!found.answers_none) {
        found.answer += content;
        in_message = (first & last_bit) == 0;
      }
      if (!in_message) return found;
    }
    return Found();
  }
  bool in_order() const override { return false; }

private:
  static constexpr unsigned char last_bit = 0x80, mask_bit = 0x80, control_bit = 8;
  static constexpr unsigned char text_kind = 1, ping_kind = 9, pong_kind = 10;

  static std::uint64_t big_endian(std::string_view bytes) {
    std::uint64_t number = 0;
    for (const unsigned char byte : bytes) number = number << 8 | byte;
    return number;
  }
  static void add_frame(unsigned char kind, std::string_view content, std::string& out) {
    const std::uint64_t size = content.size();
    const int more = size < 126 ? 0 : size < 65536 ? 2 : 8;  // bytes of the length
    out += static_cast<char>(last_bit | kind);
    out += static_cast<char>(mask_bit | (more == 0 ? size : more == 2 ? 126 : 127));
    for (int i = more; i-- > 0;) out += static_cast<char>(size >> 8 * i);
    out.append(4, '\0').append(content);  // a mask of zeros leaves it as it is
  }
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
  if (door.kind == Door::WEBSOCKET) return std::make_unique<Websocket>();
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
