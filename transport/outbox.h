#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "json_spirit/json_spirit_value.h"
#include "transport/awaited_ids.h"
#include "transport/framing.h"
#include "transport/transport_export.h"
#include "transport/wire.h"

namespace transport {

/// Text that may stand in several channels' lines at once: a notification serialised once.
typedef std::shared_ptr<const std::string> Shared_Text;

/// A piece of a channel's line of messages: bytes of its own, or shared ones. An open piece belongs
/// to a message that is still being produced; nothing behind it leaves before it is complete.
struct Output_Piece {
  std::string own;
  Shared_Text shared;
  std::size_t answers = 0;   ///< how many of the bytes are answers
  std::uint64_t stream = 0;  ///< the open message, or 0
  bool answer = false;       ///< of an open message: it is an answer
  bool started = false;      ///< of an open message: some of it was taken to be written
  bool last = true;          ///< the text ends a message
  std::string_view text() const {
    return shared ? std::string_view(*shared) : std::string_view(own);
  }
};

/// What a channel owes its peer and what waits to be written: the ids that await an answer, and a
/// first-in-first-out line of messages. Any thread puts messages in; the channel's loop takes them
/// out. One short leaf mutex, held across no call-out and no wake-up.
///
/// Whoever puts in is told whether the loop must be woken (`wake`): only the first one since the
/// loop last found the line empty.
class TRANSPORT_EXPORT Outbox {
public:
  enum Result {
    SENT,
    NOT_AWAITED,  ///< an answer to an id that awaits none: dropped
    OVERFLOW,     ///< refused: the line holds too much
    UNSUPPORTED,  ///< refused: only answers go out
    CLOSED
  };
  /// An error under an id that awaits nothing, for text that was no message, is a COMPLAINT.
  enum Kind { ANSWER, COMPLAINT, NOTICE, CALL };

  explicit Outbox(std::size_t max_queue) : max_queue_(max_queue) {}

  /// How the messages are framed.
  void framing(Framing framing);

  /// A request with this id was read and is owed an answer. Gives the number of those.
  std::size_t await(const json_spirit::Value& id, const Awaited_Call& call = Awaited_Call());

  /// A request with this id that was awaited exists no longer. Whether an answer is missing, which
  /// is then the caller's to put in.
  bool gone(const json_spirit::Value& id);

  /// Somebody else answers for an awaited request with this id too, until gone(id). False when the
  /// id awaits nothing.
  bool share(const json_spirit::Value& id);

  /// Whether the id awaits an answer.
  bool awaits(const json_spirit::Value& id) const;

  // What puts in throws std::bad_alloc; nothing has changed then, and an id is awaited still.

  /// Puts a whole message in: `head` and then `body`. An answer settles its id in the same step, so
  /// that the peer is owed nothing only when the line has it; `settled`, unless it is null, is then
  /// the request.
  Result put(Kind kind, const json_spirit::Value& id, std::string_view head, std::string_view body,
             bool& wake, Awaited_Call* settled = nullptr);
  /// Puts a whole notification in, which is not null.
  Result put(const Shared_Text& notice, bool& wake);

  /// Begins an open message at the end of the line: `stream` names it for the calls below. A
  /// response settles its `answered` id (else null), and `settled` is as with put().
  Result begin(std::string_view text, const json_spirit::Value* answered, std::uint64_t& stream,
               bool& wake, Awaited_Call* settled = nullptr);
  Result append(std::uint64_t stream, std::string_view text, bool& wake);
  Result end(std::uint64_t stream, std::string_view text, bool& wake);
  /// `text`, a whole message, takes the place of an open one that will not be completed: while none
  /// of that was taken. False when some was.
  bool replace(std::uint64_t stream, std::string_view text, bool& wake);

  /// Whether the source of an open message may go on: it is the first open one, and no more than
  /// `mark` bytes stand up to its end; with 0, of one that is not in the line yet: no more than
  /// that is unsent. If not, `waiter` is resumed once it may (also when the message, or the outbox,
  /// has been closed), or sooner.
  bool may_grow(std::uint64_t stream, std::size_t mark, const std::weak_ptr<Wire>& waiter);

  /// Waits until no more than `mark` bytes are unsent: of an open message (`stream`) those in front
  /// of it and its own, for what stands behind it waits for it; with 0 all. False when the outbox
  /// was closed, or when for `patience` no byte left and no open message grew. Ended by sent(),
  /// append(), end() and close().
  bool wait_for_room(std::uint64_t stream, std::size_t mark, std::chrono::milliseconds patience);

  std::size_t unsent() const;
  std::size_t pending() const;
  /// The same, and the messages that are still being produced.
  std::size_t in_work() const;
  /// Whether the peer is owed anything: an answer or a byte.
  bool owes() const;
  bool is_closed() const;
  /// Whether more than `mark` bytes of answers are unsent or at least `max_pending` requests await
  /// an answer.
  bool overloaded(std::size_t mark, std::size_t max_pending) const;

  /// The ids that await an answer.
  std::vector<json_spirit::Value> awaited() const;

  /// The loop could not be woken: the next message is to wake it.
  void unattended();

  // For the loop.

  /// From now on the loop looks into the line by itself: nobody wakes it until take() found
  /// nothing.
  void attend();
  /// Moves what may be written behind `batch`. False when there is nothing: the next message wakes.
  /// The next message is put into `buffer`, which is empty, where it fits.
  bool take(std::vector<Output_Piece>& batch, std::string&& buffer = std::string());
  /// So many bytes of what was taken have left, and with them the last ones of pieces with so many
  /// bytes of answers.
  void sent(std::size_t bytes, std::size_t answers);
  /// The loop writes so many bytes beside those that it took: the head of a response, say.
  void adopt(std::size_t bytes);
  /// Drops everything; every later call gives CLOSED.
  void close();

private:
  /// A source that is paused until its open message may grow.
  struct Waiter {
    std::uint64_t stream;
    std::size_t mark;
    std::weak_ptr<Wire> wire;
  };
  typedef std::list<Waiter> Waiters;

  void resume(Waiters& waiters);
  Result admit(Kind kind, std::size_t bytes);
  void add(std::string_view head, std::string_view body, bool answer);
  void count(Output_Piece& piece, std::size_t bytes, bool answer);
  void settle(Awaited_Ids::Place place, Awaited_Call* settled);
  bool must_wake();
  void take_some(std::vector<Output_Piece>& batch, std::vector<Output_Piece>::iterator open);
  Output_Piece* find(std::uint64_t stream);
  std::size_t unsent_up_to(std::uint64_t stream) const;
  Result grow(std::uint64_t stream, std::string_view text, bool complete, bool& wake);
  bool has_room(std::uint64_t stream, std::size_t mark) const;
  Waiters ready_waiters();

  const std::size_t max_queue_;
  mutable std::mutex mutex_;      // a leaf
  std::condition_variable room_;  // of wait_for_room, with mutex_
  Awaited_Ids awaited_;           // guarded by mutex_, like what follows up to closed_
  Framing framing_ = Framing::LINES;
  std::vector<Output_Piece> line_;
  Waiters waiters_;
  std::size_t unsent_ = 0;      // of the line and of what the loop has taken
  std::size_t answers_ = 0;     // of those, bytes of answers
  std::size_t in_flight_ = 0;   // of what the loop has taken
  std::uint64_t progress_ = 0;  // shows waiters that something moves
  std::uint64_t last_stream_ = 0;
  std::string buffer_;  // for the next piece
  bool closed_ = false;

  // The loop looks by itself. Read and set under mutex_ by who puts in, and set by the loop and by
  // who could not wake it without: at worst the loop is woken for nothing.
  std::atomic<bool> attended_{false};
};

}  // namespace transport
