#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "transport/envelope_scanner.h"
#include "vexa/yajl_printer.h"

namespace transport {

class Stream_Channel;

/// One outgoing message that is produced piece by piece. It is held here until it is complete or
/// has grown over 64 KiB, so that small ones block nobody; then it stands in the channel's line as
/// an open message, and its producer waits while too much is unsent. With header framing, whose
/// length comes first, it is held until it is complete. An answer to an id that awaits none is
/// swallowed.
///
/// Belongs to the thread that produces the message.
class Outgoing_Stream final : public YAJL_Printer {
public:
  explicit Outgoing_Stream(Stream_Channel& channel);
  /// A message that was not finished is abandoned: what is already in the line breaks the peer's
  /// stream, so the channel is then closed.
  ~Outgoing_Stream() override;
  Outgoing_Stream(const Outgoing_Stream&) = delete;
  Outgoing_Stream& operator=(const Outgoing_Stream&) = delete;

  void print(const char* text, std::size_t length) override;

  /// The message is complete. 0, or -1 with errno: ENOTCONN closed, EINVAL not awaited, ENOBUFS the
  /// line is too full (on a loop thread, which does not wait), ETIMEDOUT the peer takes nothing,
  /// ENOMEM.
  int finish();
  /// Whoever produced it will not complete it: what is still written goes nowhere, and finish()
  /// gives -1, ECANCELED. As the destructor, for a generator that somebody may still hold.
  void abandon();
  /// Whether it is known to answer the request `id`.
  bool answers(const json_spirit::Value& id) const;
  bool failed() const { return error_ != 0; }
  int error() const { return error_; }

private:
  enum State { HELD, IN_LINE, DONE };
  void take(const char* text, std::size_t length);
  bool may_produce();
  void enter_line();
  void fail(int error);

  Stream_Channel& channel_;
  State state_ = HELD;
  int error_ = 0;
  Envelope_Scanner envelope_;
  std::string text_;  // what has not been put in the line yet
  std::uint64_t stream_ = 0;
};

}  // namespace transport
