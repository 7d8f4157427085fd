#include "transport/outbox.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

namespace transport {

namespace {

// Small messages share a piece, and so a system call's vector entry.
constexpr std::size_t joined_piece = 64u << 10;
// Shared text below this is copied: cheaper than an entry of its own.
constexpr std::size_t copied_text = 4u << 10;
constexpr std::size_t kept_pieces = 16;  // room that an empty line may keep

}  // namespace

void Outbox::framing(Framing framing) {
  const std::lock_guard<std::mutex> guard(mutex_);
  framing_ = framing;
}

std::size_t Outbox::await(const json_spirit::Value& id, const Awaited_Call& call) {
  const std::lock_guard<std::mutex> guard(mutex_);
  awaited_.add(id, call);
  return awaited_.size();
}

bool Outbox::gone(const json_spirit::Value& id) {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.gone(id);
}

bool Outbox::share(const json_spirit::Value& id) {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.share(id);
}

/// Whether a message of that size may join the line. Requires mutex_.
Outbox::Result Outbox::admit(Kind kind, std::size_t bytes) {
  if (closed_) return CLOSED;
  if (framing_ == Framing::BODIES && (kind == CALL || kind == NOTICE)) return UNSUPPORTED;
  if (kind != ANSWER && unsent_ > 0 && unsent_ + bytes > max_queue_) return OVERFLOW;
  return SENT;
}

/// Requires mutex_.
void Outbox::settle(Awaited_Ids::Place place, Awaited_Call* settled) {
  const Awaited_Call call = awaited_.settle(place);
  if (settled != nullptr) *settled = call;
}

/// Requires mutex_.
bool Outbox::must_wake() {
  if (attended_.load(std::memory_order_relaxed)) return false;
  attended_.store(true, std::memory_order_relaxed);
  return true;
}

/// Appends to the last piece where that is small and complete. All or nothing. Requires mutex_.
void Outbox::add(std::string_view head, std::string_view body, bool answer) {
  const std::size_t bytes = head.size() + body.size();
  const bool apart = framing_ == Framing::MESSAGES;
  if (apart || line_.empty() || line_.back().stream != 0 || line_.back().shared ||
      line_.back().own.size() + bytes > joined_piece) {
    Output_Piece piece;
    piece.own.swap(buffer_);
    piece.own.reserve(bytes);
    line_.push_back(std::move(piece));
  }
  std::string& text = line_.back().own;
  text.reserve(text.size() + bytes);  // grows as append() does
  text.append(head).append(body);
  count(line_.back(), bytes, answer);
}

/// Bytes have been added to a piece. Requires mutex_.
void Outbox::count(Output_Piece& piece, std::size_t bytes, bool answer) {
  unsent_ += bytes;
  if (!answer) return;
  piece.answers += bytes;
  answers_ += bytes;
}

Outbox::Result Outbox::put(Kind kind, const json_spirit::Value& id, std::string_view head,
                           std::string_view body, bool& wake, Awaited_Call* settled) {
  wake = false;
  const std::lock_guard<std::mutex> guard(mutex_);
  const Result admitted = admit(kind, head.size() + body.size());
  if (admitted != SENT) return admitted;
  Awaited_Ids::Place place;
  if (kind == ANSWER && !awaited_.find(id, place)) return NOT_AWAITED;
  add(head, body, kind == ANSWER || kind == COMPLAINT);
  if (kind == ANSWER) settle(place, settled);  // last: without memory it is still awaited
  wake = must_wake();
  return SENT;
}

Outbox::Result Outbox::put(const Shared_Text& notice, bool& wake) {
  if (notice->size() <= copied_text) return put(NOTICE, json_spirit::Value(), {}, *notice, wake);
  wake = false;
  const std::lock_guard<std::mutex> guard(mutex_);
  const Result admitted = admit(NOTICE, notice->size());
  if (admitted != SENT) return admitted;
  line_.push_back({std::string(), notice});
  count(line_.back(), notice->size(), false);
  wake = must_wake();
  return SENT;
}

Outbox::Result Outbox::begin(std::string_view text, const json_spirit::Value* answered,
                             std::uint64_t& stream, bool& wake, Awaited_Call* settled) {
  wake = false;
  const std::lock_guard<std::mutex> guard(mutex_);
  if (closed_) return CLOSED;
  if (framing_ == Framing::BODIES && answered == nullptr) return UNSUPPORTED;
  Awaited_Ids::Place place;
  if (answered != nullptr && !awaited_.find(*answered, place)) return NOT_AWAITED;
  line_.push_back({std::string(text), Shared_Text(), 0, last_stream_ + 1, answered != nullptr});
  stream = ++last_stream_;
  if (answered != nullptr) settle(place, settled);  // last: without memory it is still awaited
  count(line_.back(), text.size(), line_.back().answer);
  wake = must_wake();
  return SENT;
}

/// Requires mutex_.
Output_Piece* Outbox::find(std::uint64_t stream) {
  const auto it = std::find_if(line_.begin(), line_.end(),
                               [=](const Output_Piece& piece) { return piece.stream == stream; });
  return it == line_.end() ? nullptr : &*it;
}

Outbox::Result Outbox::append(std::uint64_t stream, std::string_view text, bool& wake) {
  return grow(stream, text, false, wake);
}

Outbox::Result Outbox::end(std::uint64_t stream, std::string_view text, bool& wake) {
  return grow(stream, text, true, wake);
}

Outbox::Result Outbox::grow(std::uint64_t stream, std::string_view text, bool complete,
                            bool& wake) {
  wake = false;
  Waiters ready;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    Output_Piece* const piece = find(stream);
    if (closed_ || piece == nullptr) return CLOSED;
    piece->own.append(text);
    if (complete) piece->stream = 0;
    count(*piece, text.size(), piece->answer);
    ++progress_;
    wake = must_wake();
    if (complete) ready = ready_waiters();
  }
  room_.notify_all();
  resume(ready);
  return SENT;
}

bool Outbox::replace(std::uint64_t stream, std::string_view text, bool& wake) {
  wake = false;
  Waiters ready;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    Output_Piece* const piece = find(stream);
    if (closed_ || piece == nullptr) return true;
    if (piece->started) return false;
    std::string whole(text);  // first: without memory nothing has changed
    unsent_ -= piece->own.size();
    answers_ -= std::exchange(piece->answers, 0);
    piece->own.swap(whole);
    count(*piece, text.size(), piece->answer);
    piece->stream = 0;
    ++progress_;
    wake = must_wake();
    ready = ready_waiters();
  }
  room_.notify_all();
  resume(ready);
  return true;
}

/// Whether an open message is the first one and little stands up to its end, or it is open no
/// longer; of one that is not in the line yet (0), whether little stands there. Requires mutex_.
bool Outbox::has_room(std::uint64_t stream, std::size_t mark) const {
  if (stream == 0) return unsent_ <= mark;
  std::size_t bytes = in_flight_;
  bool first = true;
  for (const Output_Piece& piece : line_) {
    bytes += piece.text().size();
    if (piece.stream == stream) return first && bytes <= mark;
    if (piece.stream != 0) first = false;
  }
  return true;
}

bool Outbox::may_grow(std::uint64_t stream, std::size_t mark, const std::weak_ptr<Wire>& waiter) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (closed_ || has_room(stream, mark)) return true;
  const bool known = std::any_of(waiters_.begin(), waiters_.end(), [&](const Waiter& w) {
    return w.stream == stream && !w.wire.owner_before(waiter) && !waiter.owner_before(w.wire);
  });
  if (!known) waiters_.push_back({stream, mark, waiter});
  return false;
}

/// Takes out those that need wait no longer; needs no memory. Requires mutex_.
Outbox::Waiters Outbox::ready_waiters() {
  Waiters ready;
  for (auto it = waiters_.begin(); it != waiters_.end();) {
    const auto waiter = it++;
    if (closed_ || has_room(waiter->stream, waiter->mark)) {
      ready.splice(ready.end(), waiters_, waiter);
    }
  }
  return ready;
}

/// Without memory to tell them they go on to wait: what happens next tells them again.
void Outbox::resume(Waiters& waiters) {
  for (auto it = waiters.begin(); it != waiters.end();) {
    const auto waiter = it++;
    const std::shared_ptr<Wire> wire = waiter->wire.lock();
    try {
      if (wire != nullptr) wire->resume();
    } catch (const std::bad_alloc&) {
      const std::lock_guard<std::mutex> guard(mutex_);
      waiters_.splice(waiters_.end(), waiters, waiter);
    }
  }
}

/// What has to leave before an open message has: all that stands in front of it, and itself.
/// Requires mutex_.
std::size_t Outbox::unsent_up_to(std::uint64_t stream) const {
  if (stream == 0) return unsent_;
  std::size_t bytes = in_flight_;
  for (const Output_Piece& piece : line_) {
    bytes += piece.text().size();
    if (piece.stream == stream) break;
  }
  return bytes;
}

bool Outbox::wait_for_room(std::uint64_t stream, std::size_t mark,
                           std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> guard(mutex_);
  while (!closed_ && unsent_up_to(stream) > mark) {
    const std::uint64_t before = progress_;
    const bool moved =
        room_.wait_for(guard, patience, [&] { return closed_ || progress_ != before; });
    if (!moved) return false;
  }
  return !closed_;
}

std::size_t Outbox::unsent() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return unsent_;
}

std::size_t Outbox::pending() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.size();
}

std::size_t Outbox::in_work() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.size() + std::count_if(line_.begin(), line_.end(), [](const Output_Piece& piece) {
           return piece.stream != 0;
         });
}

bool Outbox::owes() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.size() > 0 || unsent_ > 0 || !line_.empty();
}

bool Outbox::overloaded(std::size_t mark, std::size_t max_pending) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return answers_ > mark || awaited_.size() >= max_pending;
}

bool Outbox::is_closed() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return closed_;
}

bool Outbox::awaits(const json_spirit::Value& id) const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.awaits(id);
}

std::vector<json_spirit::Value> Outbox::awaited() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return awaited_.all();
}

void Outbox::unattended() { attended_.store(false, std::memory_order_relaxed); }

void Outbox::attend() { attended_.store(true, std::memory_order_relaxed); }

bool Outbox::take(std::vector<Output_Piece>& batch, std::string&& buffer) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (buffer_.capacity() < buffer.capacity()) buffer_.swap(buffer);
  const auto open = std::find_if(line_.begin(), line_.end(),
                                 [](const Output_Piece& piece) { return piece.stream != 0; });
  const std::size_t before = batch.size();
  if (before == 0 && open == line_.end()) {
    batch.swap(line_);
  } else {
    take_some(batch, open);
  }
  if (line_.empty() && line_.capacity() > kept_pieces) std::vector<Output_Piece>().swap(line_);
  for (std::size_t i = before; i < batch.size(); ++i) in_flight_ += batch[i].text().size();
  attended_.store(batch.size() > before, std::memory_order_relaxed);
  return batch.size() > before;
}

/// Moves the pieces up to `open`, and what there is of that. Requires mutex_.
void Outbox::take_some(std::vector<Output_Piece>& batch, std::vector<Output_Piece>::iterator open) {
  batch.reserve(batch.size() + line_.size());  // first: what is moved is not to be lost
  std::move(line_.begin(), open, std::back_inserter(batch));
  if (open != line_.end() && !open->own.empty()) {
    batch.push_back({std::move(open->own), Shared_Text(), std::exchange(open->answers, 0)});
    batch.back().last = false;
    open->own.clear();
    open->started = true;
  }
  line_.erase(line_.begin(), open);
}

void Outbox::sent(std::size_t bytes, std::size_t answers) {
  Waiters ready;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    unsent_ -= bytes;
    in_flight_ -= bytes;
    answers_ -= answers;
    ++progress_;
    ready = ready_waiters();
  }
  room_.notify_all();
  resume(ready);
}

void Outbox::adopt(std::size_t bytes) {
  const std::lock_guard<std::mutex> guard(mutex_);
  unsent_ += bytes;
  in_flight_ += bytes;
}

void Outbox::close() {
  std::vector<Output_Piece> dropped;  // freed after the unlock
  Waiters ready;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    closed_ = true;
    dropped.swap(line_);
    unsent_ = answers_ = in_flight_ = 0;
    awaited_.clear();
    ready = ready_waiters();
  }
  room_.notify_all();
  resume(ready);
}

}  // namespace transport
