// The responses that come over a connection are the same, however their bytes are cut and in
// whatever pieces their bodies are taken; and there are no more of them than bytes.
#include <cerrno>

#include "fuzz/input.h"
#include "tests/support/log_capture.h"
#include "vexa/http_response_reader.h"

namespace {

/// What the connection gives next.
struct Connection {
  explicit Connection(const Fuzz_Input::Pieces& p) : pieces(p) {}
  const Fuzz_Input::Pieces& pieces;
  std::size_t piece = 0;
  std::size_t at = 0;
};
Connection* connection = nullptr;

}  // namespace

// Linked in place of the real sockets, which the reader knows by these names alone.
namespace vexa {

HTTP_Socket::~HTTP_Socket() = default;

ssize_t HTTP_Socket::recv(void* data, std::size_t size) {
  FUZZ_CHECK(size > 0);
  Connection& c = *connection;
  if (c.piece == c.pieces.size()) return 0;
  const std::vector<char>& piece = c.pieces[c.piece];
  const std::size_t got = std::min(size, piece.size() - c.at);
  std::copy_n(piece.begin() + c.at, got, static_cast<char*>(data));
  c.at += got;
  if (c.at == piece.size()) {
    ++c.piece;
    c.at = 0;
  }
  return static_cast<ssize_t>(got);
}

HTTP_TLS::~HTTP_TLS() = default;
ssize_t HTTP_TLS::recv(void*, std::size_t) { return 0; }

}  // namespace vexa

namespace {

/// The parser looks again at a head that came in part only when its end has come: so whether what
/// is no HTTP is refused or breaks off depends on the cut. Nothing else may be the reason.
const char* failure() {
  FUZZ_CHECK(errno == EPROTO || errno == EMSGSIZE || errno == ECONNRESET);
  return "!";
}

/// All responses as text, up to the failure that ends them.
std::string read(const Fuzz_Input::Pieces& pieces, std::size_t limit, bool no_body,
                 const Fuzz_Input* sizes) {
  Connection c(pieces);
  connection = &c;
  vexa::HTTP_Stream stream;
  vexa::HTTP_Response_Reader reader;
  FUZZ_CHECK(reader.ok());
  std::string seen;
  for (std::size_t responses = 0;; ++responses) {
    FUZZ_CHECK(responses <= limit);
    HTTP_Response response;
    if (reader.head(stream, no_body, response) == -1) return seen + failure();
    seen += std::to_string(response.status()) + '.' + std::to_string(response.minor_version());
    for (const auto& field : response.headers()) {
      seen.append(field.title()).append(":").append(field.value).append("\n");
    }
    ssize_t got = 1;
    for (std::size_t i = 0; got > 0; ++i) {
      std::vector<char> buffer(sizes == nullptr ? 4096 : sizes->piece_size(i));
      got = reader.body(stream, buffer.data(), buffer.size());
      FUZZ_CHECK(got <= static_cast<ssize_t>(buffer.size()));
      if (got > 0) seen.append(buffer.data(), static_cast<std::size_t>(got));
    }
    if (got == -1) return seen + failure();
    FUZZ_CHECK(reader.done());
    seen += '|';
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Log_Capture log;
  const Fuzz_Input input(data, size);
  const std::size_t bytes = input.text().size();
  for (const bool no_body : {false, true}) {
    const std::string whole = read(input.whole(), bytes, no_body, nullptr);
    FUZZ_CHECK(read(input.cut(), bytes, no_body, nullptr) == whole);
    FUZZ_CHECK(read(input.cut(), bytes, no_body, &input) == whole);
    FUZZ_CHECK(read(input.whole(), bytes, no_body, &input) == whole);
  }
  return 0;
}
