#pragma once

#include <cstddef>
#include <string>

#include "json_spirit/json_spirit_value.h"

namespace transport {

/// Tells what kind of message an outgoing text is while it is being produced, and whom a response
/// answers, from its members at the top level. Looks no further once it knows. The text comes from
/// a generator, so it is well-formed as far as it goes.
class Envelope_Scanner {
public:
  enum Kind { UNKNOWN, NOT_A_RESPONSE, RESPONSE };

  /// Reads on in the text.
  void scan(const char* text, std::size_t length);

  /// Whether the kind, and of a response the id, is known.
  bool known() const { return kind_ == NOT_A_RESPONSE || (kind_ == RESPONSE && have_id_); }
  Kind kind() const { return kind_; }
  /// Of a response: the id that it answers.
  const json_spirit::Value& id() const { return id_; }

private:
  void step(char c);
  void end_token();

  Kind kind_ = UNKNOWN;
  bool have_id_ = false;
  json_spirit::Value id_;
  unsigned int depth_ = 0;
  bool in_string_ = false;
  bool escaped_ = false;
  bool in_value_ = false;  // at the top level: behind a colon
  std::string key_;        // the raw text of the last member name
  std::string token_;      // the raw text of the name or of the id, as it comes
};

}  // namespace transport
