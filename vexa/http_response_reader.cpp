#include "vexa/http_response_reader.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "vexa/http_text.h"
#include "vexa/log.h"

// Beast parses heads and chunks. Bodies that a length or the end of the connection delimits are
// only counted here: they go past the parser, and large reads past the buffer too.

namespace vexa {

namespace {

namespace http = boost::beast::http;

constexpr std::size_t buffer_size = 16u << 10;  // grows only for a long head

enum class Body { length, until_close, chunked };

int refuse(int error, const char* reason) {
  errno = error;
  VEXA_WARNING("HTTP response refused, %C\n", reason);
  return -1;
}

}  // namespace

struct HTTP_Response_Reader::Impl {
  std::unique_ptr<char[]> buffer;
  std::size_t capacity = 0;
  std::size_t begin = 0;  // what was read ahead is [begin, end)
  std::size_t end = 0;
  std::optional<http::response_parser<http::buffer_body>> parser;
  Body body = Body::length;
  std::uint64_t left = 0;  // of a body with a length, bytes
  bool done = true;
  bool started = false;
  int error = 0;  // met behind bytes that had to be given out first

  std::size_t buffered() const { return end - begin; }
  bool grow();
  ssize_t fill(HTTP_Stream& stream);
  ssize_t parse();
  int parse_head(HTTP_Stream& stream, bool no_body);
  bool coding_is_known() const;
  void copy_head(HTTP_Response& response) const;
  void begin_body();
  ssize_t plain(HTTP_Stream& stream, char* data, std::size_t size);
  ssize_t chunks(HTTP_Stream& stream, char* data, std::size_t size);
  bool may_be_last_chunk() const;
  void finish_chunks();
};

bool HTTP_Response_Reader::Impl::grow() {
  const std::size_t wanted = capacity == 0 ? buffer_size : 2 * capacity;
  std::unique_ptr<char[]> larger(new (std::nothrow) char[wanted]);
  if (!larger) {
    errno = ENOMEM;
    return false;
  }
  std::copy(buffer.get() + begin, buffer.get() + end, larger.get());
  end -= begin;
  begin = 0;
  buffer = std::move(larger);
  capacity = wanted;
  return true;
}

/// Receives behind what is buffered; 0 at the end of the connection.
ssize_t HTTP_Response_Reader::Impl::fill(HTTP_Stream& stream) {
  if (begin != 0) {
    std::memmove(buffer.get(), buffer.get() + begin, buffered());
    end -= begin;
    begin = 0;
  }
  if (end == capacity && !grow()) return -1;
  const ssize_t got = stream.recv(buffer.get() + end, capacity - end);
  if (got > 0) {
    end += static_cast<std::size_t>(got);
    started = true;
  }
  return got;
}

/// Feeds the parser once; how many bytes it took, or -1.
ssize_t HTTP_Response_Reader::Impl::parse() {
  if (begin == end) return 0;
  boost::system::error_code error;
  const std::size_t taken =
      parser->put(boost::asio::const_buffer(buffer.get() + begin, buffered()), error);
  begin += taken;
  if (begin == end) begin = end = 0;
  if (error && error != http::error::need_more && error != http::error::need_buffer) {
    return refuse(error == http::error::header_limit ? EMSGSIZE : EPROTO, error.message().c_str());
  }
  return static_cast<ssize_t>(taken);
}

int HTTP_Response_Reader::Impl::parse_head(HTTP_Stream& stream, bool no_body) {
  parser.emplace();
  parser->eager(false);
  parser->skip(no_body);
  parser->header_limit(max_head);
  parser->body_limit(std::numeric_limits<std::uint64_t>::max());
  // Beast limits the status line and the fields each, not both together.
  for (std::size_t total = 0;;) {
    const ssize_t taken = parse();
    if (taken == -1) return -1;
    total += static_cast<std::size_t>(taken);
    const bool whole = parser->is_header_done();
    if (total + (whole ? 0 : buffered() + 1) > max_head) return refuse(EMSGSIZE, "head too large");
    if (whole) return 0;
    const ssize_t got = fill(stream);
    if (got == 0) errno = ECONNRESET;
    if (got <= 0) return -1;
  }
}

void HTTP_Response_Reader::Impl::copy_head(HTTP_Response& response) const {
  const auto& head = parser->get();
  response.status(static_cast<int>(head.result_int()));
  response.minor_version(static_cast<int>(head.version() % 10));
  for (const auto& field : head) {
    const auto name = field.name_string();
    const auto value = field.value();
    response.headers().append({name.data(), name.size()}, {value.data(), value.size()});
  }
}

/// No coding was asked for, and those that HTTP/1.0 knows cannot be trusted (RFC 9112, 6.1).
bool HTTP_Response_Reader::Impl::coding_is_known() const {
  const auto& head = parser->get();
  const auto coding = head.find(http::field::transfer_encoding);
  if (coding == head.end()) return true;
  const auto value = coding->value();
  return head.version() >= 11 && vexa::ascii_iequal({value.data(), value.size()}, "chunked");
}

void HTTP_Response_Reader::Impl::begin_body() {
  done = parser->is_done();
  if (done) return;
  const auto length = parser->content_length();
  left = length ? *length : 0;
  body = parser->chunked() ? Body::chunked : length ? Body::length : Body::until_close;
}

ssize_t HTTP_Response_Reader::Impl::plain(HTTP_Stream& stream, char* data, std::size_t size) {
  if (body == Body::length) size = static_cast<std::size_t>(std::min<std::uint64_t>(size, left));
  ssize_t got = 0;
  if (buffered() != 0 || size < capacity) {
    const ssize_t filled = buffered() != 0 ? 1 : fill(stream);
    got = filled <= 0 ? filled : static_cast<ssize_t>(std::min(size, buffered()));
    if (got > 0) {
      std::memcpy(data, buffer.get() + begin, static_cast<std::size_t>(got));
      begin += static_cast<std::size_t>(got);
      if (begin == end) begin = end = 0;
    }
  } else {
    got = stream.recv(data, size);
  }
  if (got == 0 && body == Body::length) {
    errno = ECONNRESET;
    return -1;
  }
  if (got > 0 && body == Body::length) left -= static_cast<std::uint64_t>(got);
  done = body == Body::length ? left == 0 : got == 0;
  return got;
}

/// Whether what is buffered may begin with a size that is 0.
bool HTTP_Response_Reader::Impl::may_be_last_chunk() const {
  const char* const first = buffer.get() + begin;
  const char* const last = buffer.get() + end;
  const char* const digit = std::find_if(first, last, [](char c) { return c != '0'; });
  return digit == last || std::isxdigit(static_cast<unsigned char>(*digit)) == 0;
}

ssize_t HTTP_Response_Reader::Impl::chunks(HTTP_Stream& stream, char* data, std::size_t size) {
  auto& target = parser->get().body();
  bool progress = true;
  while (!parser->is_done()) {
    target.data = data;
    target.size = size;
    // Asked again about a last chunk, Beast asserts that its five bytes have come.
    const bool ask = buffered() != 0 && (progress || buffered() >= 5 || !may_be_last_chunk());
    const ssize_t taken = ask ? parse() : 0;
    if (taken == -1) return -1;
    if (const std::size_t got = size - target.size) {
      finish_chunks();
      return static_cast<ssize_t>(got);
    }
    if (ask) progress = taken != 0;
    if (taken != 0) continue;
    if (buffered() >= max_head) return refuse(EMSGSIZE, "chunk extensions or trailers too large");
    const ssize_t filled = fill(stream);
    if (filled == 0) errno = ECONNRESET;
    if (filled <= 0) return -1;
  }
  done = true;
  return 0;
}

/// Takes the end of the body along when it has come with its last bytes, which saves the caller an
/// empty read.
void HTTP_Response_Reader::Impl::finish_chunks() {
  auto& target = parser->get().body();
  target.data = nullptr;
  target.size = 0;
  ssize_t taken;
  do {
    taken = parse();
  } while (taken > 0 && !parser->is_done());
  if (taken == -1) error = errno;
  done = parser->is_done();
}

HTTP_Response_Reader::HTTP_Response_Reader() : impl_(new (std::nothrow) Impl) {
  if (impl_ && !impl_->grow()) impl_.reset();
}

HTTP_Response_Reader::~HTTP_Response_Reader() = default;

int HTTP_Response_Reader::head(HTTP_Stream& stream, bool no_body, HTTP_Response& response) {
  impl_->done = false;
  impl_->started = false;
  impl_->error = 0;
  try {
    for (int heads = 0; heads <= max_interim_heads; ++heads) {
      if (impl_->parse_head(stream, no_body) == -1) return -1;
      const unsigned status = impl_->parser->get().result_int();
      if (status < 100) return refuse(EPROTO, "its status is none");
      if (status == 101) return refuse(EPROTO, "no change of protocol was asked for");
      if (status / 100 == 1) continue;
      if (!impl_->parser->is_done() && !impl_->coding_is_known()) {
        return refuse(EPROTO, "its transfer coding is not chunked");
      }
      impl_->copy_head(response);
      impl_->begin_body();
      return 0;
    }
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
  return refuse(EPROTO, "its interim responses do not end");
}

bool HTTP_Response_Reader::started() const { return !impl_->done && impl_->started; }

ssize_t HTTP_Response_Reader::body(HTTP_Stream& stream, char* data, std::size_t size) {
  if (impl_->done || size == 0) return 0;
  if (impl_->error != 0) {
    errno = impl_->error;
    return -1;
  }
  try {
    return impl_->body == Body::chunked ? impl_->chunks(stream, data, size)
                                        : impl_->plain(stream, data, size);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

bool HTTP_Response_Reader::done() const { return impl_->done; }

bool HTTP_Response_Reader::reusable() const {
  return impl_->done && impl_->buffered() == 0 && impl_->parser->keep_alive();
}

}  // namespace vexa
