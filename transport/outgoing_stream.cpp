#include "transport/outgoing_stream.h"

#include <cerrno>
#include <new>

#include "transport/loop_thread.h"
#include "transport/stream_channel.h"

namespace transport {

namespace {

constexpr std::size_t piece = 64u << 10;  // bytes gathered before the line is touched

}  // namespace

Outgoing_Stream::Outgoing_Stream(Stream_Channel& channel) : channel_(channel) {}

Outgoing_Stream::~Outgoing_Stream() { abandon(); }

void Outgoing_Stream::abandon() {
  if (state_ == IN_LINE) channel_.close_soon("an outgoing message broke off");
  fail(ECANCELED);
}

bool Outgoing_Stream::answers(const json_spirit::Value& id) const {
  return envelope_.kind() == Envelope_Scanner::RESPONSE && envelope_.known() &&
         envelope_.id() == id;
}

void Outgoing_Stream::fail(int error) {
  error_ = error;
  text_.clear();
}

/// Whether the producer may go on: it waits here while too much is unsent, unless it is a loop.
bool Outgoing_Stream::may_produce() {
  const std::size_t mark = channel_.limits().queue_mark();
  if (on_loop_thread()) {
    if (channel_.outbox().unsent() <= mark) return true;
    fail(ENOBUFS);
    return false;
  }
  if (channel_.outbox().wait_for_room(stream_, mark, channel_.limits().stall_timeout)) return true;
  fail(channel_.outbox().is_closed() ? ENOTCONN : ETIMEDOUT);
  return false;
}

/// Called by yajl, whose caller may be anybody's handler: no exception goes there.
void Outgoing_Stream::print(const char* text, std::size_t length) {
  if (error_ != 0 || state_ == DONE) return;
  try {
    take(text, length);
  } catch (const std::bad_alloc&) {
    fail(ENOMEM);
  }
}

void Outgoing_Stream::take(const char* text, std::size_t length) {
  text_.append(text, length);
  if (state_ == HELD) envelope_.scan(text, length);
  if (text_.size() < piece) return;
  // A loop thread could not wait for room later, and header framing needs the length first.
  const bool hold = on_loop_thread() || channel_.framing() == Framing::HEADERS;
  if (hold || !may_produce()) return;
  if (state_ == HELD) {
    enter_line();
    return;
  }
  bool wake;
  const Outbox::Result result = channel_.outbox().append(stream_, text_, wake);
  text_.clear();
  if (result != Outbox::SENT) return fail(ENOTCONN);
  if (wake) channel_.wake();
}

/// The message is too large to be held: from now on it stands in the line. Only once it is known
/// whom it answers.
void Outgoing_Stream::enter_line() {
  if (envelope_.kind() == Envelope_Scanner::UNKNOWN) return;
  const bool answer = envelope_.kind() == Envelope_Scanner::RESPONSE;
  if (answer && !envelope_.known()) return;
  bool wake;
  const Outbox::Result result =
      channel_.begin_open(text_, answer ? &envelope_.id() : nullptr, stream_, wake);
  if (result != Outbox::SENT) {
    channel_.report_dropped(result, envelope_.id());
    return fail(errno);
  }
  text_.clear();
  state_ = IN_LINE;
  if (wake) channel_.wake();
}

int Outgoing_Stream::finish() {
  // What stands in the line already is complete with this: its last bytes need no room.
  if (error_ == 0 && state_ == HELD) may_produce();
  if (error_ != 0) {
    errno = error_;
    return -1;
  }
  if (state_ == HELD) {
    if (!envelope_.known()) {
      errno = EINVAL;
      return -1;
    }
    const bool answer = envelope_.kind() == Envelope_Scanner::RESPONSE;
    text_ += '\n';
    return channel_.put(answer ? Outbox::ANSWER : Outbox::CALL, envelope_.id(), text_);
  }
  bool wake;
  text_ += '\n';
  const Outbox::Result result = channel_.outbox().end(stream_, text_, wake);
  state_ = DONE;  // not before: what could not be ended breaks off
  if (result != Outbox::SENT) {
    errno = ENOTCONN;
    return -1;
  }
  if (wake) channel_.wake();
  return 0;
}

}  // namespace transport
