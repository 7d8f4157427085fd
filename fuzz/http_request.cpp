// The requests that come over a connection are the same, however their bytes are cut: heads, bodies
// and what ends them. None of them takes what it did not get.
#include "fuzz/input.h"
#include "http/request_parser.h"

namespace {

using http::Request_Parser;

/// Gives all bytes of the pieces to a parser, and writes down what comes of them.
class Reading {
public:
  std::string read(const Fuzz_Input::Pieces& pieces) {
    for (const std::vector<char>& piece : pieces) {
      std::size_t at = 0;
      do {  // also when the piece is used up: an end may be due
        std::size_t used = ~std::size_t{0};
        const Request_Parser::Outcome outcome =
            parser_.feed(piece.data() + at, piece.size() - at, used);
        FUZZ_CHECK(used <= piece.size() - at);
        at += used;
        if (!note(outcome)) break;
      } while (status_ == 0);
      if (status_ != 0) break;
      FUZZ_CHECK(at == piece.size());
    }
    return seen_;
  }
  /// What it was refused with; 0 when it was not.
  int status() const { return status_; }

private:
  /// False when more is wanted.
  bool note(Request_Parser::Outcome outcome) {
    switch (outcome) {
      case Request_Parser::MORE:
        return false;
      case Request_Parser::HEAD:
        note_head();
        break;
      case Request_Parser::BODY:
        FUZZ_CHECK(!parser_.body().empty());
        body_bytes_ += parser_.body().size();
        seen_.append(parser_.body());
        break;
      case Request_Parser::COMPLETE:
        note_end();
        break;
      case Request_Parser::BAD:
        status_ = parser_.status();
        FUZZ_CHECK(status_ == 400 || status_ == 431 || status_ == 501);
        break;
    }
    return true;
  }

  void note_head() {
    FUZZ_CHECK(parser_.begun());
    FUZZ_CHECK(request_.method() != HTTP_METHOD_UNKNOWN);
    seen_ += std::to_string(request_.method()) + ' ' + request_.uri_text() + ' ' +
             std::to_string(request_.minor_version()) + (parser_.keep_alive() ? "+\n" : "-\n");
    std::size_t hosts = 0;
    for (const HTTP_Headers::Field& field : request_.headers()) {
      FUZZ_CHECK(field.value.find_first_of("\r\n") == std::string::npos);
      hosts += field.id == HTTP_HEAD_HOST;
      seen_.append(field.title()).append(":").append(field.value).append("\n");
    }
    FUZZ_CHECK(hosts == 1 || (hosts == 0 && request_.minor_version() == 0));
    body_bytes_ = 0;
  }

  void note_end() {
    const std::size_t length = parser_.content_length();
    FUZZ_CHECK(length == std::string::npos || length == body_bytes_);
    FUZZ_CHECK(body_bytes_ == 0 || parser_.has_body());
    seen_ += "|\n";
    parser_.begin();
    FUZZ_CHECK(!parser_.begun());
  }

  CGI_Request request_;
  Request_Parser parser_{request_};
  std::size_t body_bytes_ = 0;
  int status_ = 0;
  std::string seen_;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // A head is looked at again only when its end has come; the blank lines bring a verdict.
  std::string ended(reinterpret_cast<const char*>(data), size);
  ended += "\r\n\r\n\r\n\r\n";
  const Fuzz_Input input(reinterpret_cast<const std::uint8_t*>(ended.data()), ended.size());
  Reading whole, cut;
  const std::string all = whole.read(input.whole());
  FUZZ_CHECK(cut.read(input.cut()) == all);
  FUZZ_CHECK(cut.status() == whole.status());
  return 0;
}
