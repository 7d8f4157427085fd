#pragma once

#include <cstddef>
#include <string>

#include "transport/message_scanner.h"

class JSON_RPC_Reader;

namespace transport {

/// Feeds one JSON text to a reader as its bytes come: whole tokens at once, the unfinished last one
/// held back. When the reader has refused the text, it only looks for its end.
class Text_Feeder {
public:
  enum Outcome {
    MORE,            ///< the text goes on
    COMPLETE,        ///< it has ended, and the reader took it
    NO_JSON,         ///< the parser refused it at `used`
    REFUSED,         ///< the reader refused it; the text goes on
    REFUSED_AT_END,  ///< the reader refused it, and it has ended
  };

  /// A text begins; the reader is open. The next byte is not white space.
  void begin();

  /// Takes bytes of the text: `used` is how many, no further than its end or the place of its
  /// failure. After REFUSED call skip() instead.
  Outcome feed(JSON_RPC_Reader& reader, const char* data, std::size_t length, std::size_t& used);

  /// Passes over bytes of the text: whether its end was found.
  bool skip(const char* data, std::size_t length, std::size_t& used);

  /// No byte follows any more: what is held is fed, and the text ends here.
  Outcome finish(JSON_RPC_Reader& reader);

  /// How many bytes are held back.
  std::size_t held() const { return held_.size(); }
  void clear();

private:
  Outcome read(JSON_RPC_Reader& reader, const char* data, std::size_t length, std::size_t& taken);

  Message_Scanner scanner_;
  std::string held_;  // the unfinished token
};

}  // namespace transport
