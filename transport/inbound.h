#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_reader.h"
#include "transport/header_reader.h"
#include "transport/stream_channel.h"
#include "transport/text_feeder.h"
#include "transport/transport_export.h"

namespace transport {

/// What the bytes of one channel come to: messages for the dispatcher, errors for what is none.
///
/// Text that is no JSON is answered -32700 and skipped to the next line feed; JSON that is no
/// message is answered -32600 and skipped by its braces; with header framing either is skipped by
/// its length. Where this end opened the connection such text is not answered, but counts. A broken
/// answer is never answered: whatever waits for its id gets -32603. Three bad ones in a row, a bad
/// one that may have been any of the answers that are awaited, a message over the limit and a bad
/// header end the channel. On the channel's loop alone.
class TRANSPORT_EXPORT Inbound {
public:
  enum Verdict {
    GO_ON,
    PAUSE,  ///< the sink has no room: the bytes that were not used come again later
    STOP    ///< read no further; close when all is sent
  };

  /// Gets each whole message that is not refused.
  class Sink {
  public:
    virtual ~Sink() = default;
    /// `bytes` is the length of its text.
    virtual void message(const JSON_RPC_Object_var& object, std::size_t bytes) = 0;
    /// Whether the sink wants no more messages now.
    virtual bool overloaded() const = 0;
  };

  /// @param complains whether text that is no message is answered
  Inbound(Stream_Channel& channel, Sink& sink, bool complains);
  ~Inbound();
  Inbound(const Inbound&) = delete;
  Inbound& operator=(const Inbound&) = delete;

  /// Takes bytes; `used` is how many.
  Verdict feed(const char* data, std::size_t length, std::size_t& used);

  /// What carries the messages, and keeps them apart, says that one has ended here.
  Verdict end_message();

  /// The peer sends no more: an unfinished message is a bad one.
  void end();

  /// Whether the answer that is being relayed, or more after a large one that was, must wait for
  /// its requester; `source` is then resumed.
  bool relay_waits(const std::weak_ptr<Wire>& source);
  /// What of it has come goes to the requester, if it stands in its line.
  void pass_on_relay();
  /// The rest of it will not come. Nothing when none is being relayed.
  void abandon_relay();

  /// Whether more of a message that was begun is to come. The rest of a line that was no JSON need
  /// not.
  bool in_message() const { return state_ != BETWEEN && state_ != SKIP_BY_LINE; }

private:
  class Reader;
  enum State {
    BETWEEN,        // before a message
    HEADER,         // in its header
    TEXT,           // in its text
    SKIP_BY_BRACE,  // in the rest of a text that is no message
    SKIP_BY_LINE,   // in the rest of a line that is no JSON
    SKIP_BY_LENGTH  // in the rest of a body, or of a message that is kept apart
  };

  std::size_t step(const char* data, std::size_t length);
  std::size_t within_limit(const char* data, std::size_t length);
  std::size_t between(const char* data, std::size_t length);
  std::size_t header(const char* data, std::size_t length);
  std::size_t text(const char* data, std::size_t length);
  std::size_t skip_line(const char* data, std::size_t length);
  bool begin_text();
  void end_text();
  void finish_text();
  void bad(int code);
  bool answer_failed();
  bool relaying() const;
  template <typename Operation>
  void with_relay(Operation operation) const;
  void stop(int code);
  void deliver();
  bool headers() const { return channel_.framing() == Framing::HEADERS; }
  bool kept_apart() const {
    return channel_.framing() == Framing::MESSAGES || channel_.framing() == Framing::BODIES;
  }
  bool by_length() const { return headers() || kept_apart(); }

  Stream_Channel& channel_;
  Sink& sink_;
  const bool complains_;
  std::unique_ptr<Reader> reader_;
  Text_Feeder feeder_;
  Header_Reader header_;
  State state_ = BETWEEN;
  bool framed_ = false;  // the first byte has told the framing
  bool stopped_ = false;
  bool relayed_much_ = false;  // the last message was a large answer
  unsigned int bad_in_a_row_ = 0;
  std::size_t size_ = 0;       // of the message, so far
  std::size_t body_left_ = 0;  // with header framing; without end where messages are kept apart
};

}  // namespace transport
