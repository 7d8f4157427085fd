#include "transport/stream_connection.h"

#include <chrono>
#include <utility>

#include "json_rpc/json_rpc_channel_map.h"
#include "vexa/exception_text.h"
#include "vexa/log.h"

namespace transport {

namespace {

constexpr std::chrono::hours without_end{24 * 365};

}  // namespace

Stream_Connection::Stream_Connection(Opened opened) : Connection(std::move(opened)) {}

Stream_Connection::~Stream_Connection() = default;

void Stream_Connection::start(Stream_Channel::Type type, Framing framing,
                              const std::shared_ptr<const Method_Filter>& filter,
                              const std::string& leftover) {
  begin(type, framing, state()->limits);
  begin_reading(leftover, filter);
}

void Stream_Connection::start(const Link_Options& options,
                              const std::weak_ptr<Connection_Watcher>& watcher) {
  dialed_ = true;
  abrupt_ = options.abrupt;
  watcher_ = watcher;
  Limits limits = state()->limits;
  if (options.patient) limits.stall_timeout = without_end;
  begin(Stream_Channel::STREAM, options.framing, limits);
  begin_reading(std::string(), nullptr);
}

void Stream_Connection::begin_reading(const std::string& leftover,
                                      const std::shared_ptr<const Method_Filter>& filter) {
  guarded([&] {
    intake_.emplace(stream(), *state(), weak_from_this(), filter);
    inbound_.reset(new Inbound(stream(), *this, !dialed_));
    JSON_RPC_Channel_Map::instance()->insert(JSON_RPC_Channel_var(channel()));
    pause(leftover.data(), leftover.size());
    go_on();
  });
}

void Stream_Connection::message(const JSON_RPC_Object_var& object, std::size_t bytes) {
  intake_->message(object, bytes);
}

/// Gives bytes to the messages they belong to. False when reading is not to go on now.
bool Stream_Connection::consume(const char* data, std::size_t length) {
  std::size_t used;
  Inbound::Verdict verdict = inbound_->feed(data, length, used);
  if (verdict == Inbound::GO_ON && bytes().take_message_end()) verdict = inbound_->end_message();
  return go_on_after(verdict, data + used, length - used);
}

bool Stream_Connection::go_on_after(Inbound::Verdict verdict, const char* rest,
                                    std::size_t length) {
  relay_waits_ = false;
  switch (verdict) {
    case Inbound::GO_ON:
      relay_waits_ = inbound_->relay_waits(weak_from_this());
      if (relay_waits_) pause(rest, 0);
      return !relay_waits_;
    case Inbound::PAUSE:
      pause(rest, length);
      return false;
    case Inbound::STOP:
      no_more_answers("it cannot be understood");
      stop_reading();
      return false;
  }
  return false;
}

/// Where neither the channel owes too much nor its relay must wait any longer: what was parked and
/// what was left over first, then the socket.
void Stream_Connection::try_resume() {
  stream().outbox().attend();
  intake_->dispatch_parked();
  if (paused()) relay_waits_ = inbound_->relay_waits(weak_from_this());
  if (paused() && !relay_waits_ && !overloaded()) return go_on();
  flush();
}

/// Whether bytes that left, or an answer that was given, made room for what waits. A relay is
/// resumed by whom it waits for.
bool Stream_Connection::can_go_on() const {
  return (paused() && !relay_waits_ && !overloaded()) || intake_->ready();
}

void Stream_Connection::end_of_input() {
  if (dialed_) return no_more_answers(nullptr);
  stream().outbox().attend();
  inbound_->end();
  no_more_answers(nullptr);
  flush();
}

/// The peer says nothing that would be understood any more. It is still sent what it is owed,
/// unless this end opened the connection and can open another: that is closed.
void Stream_Connection::no_more_answers(const char* reason) {
  if (dialed_) {
    flush();
    return close(reason);
  }
  unlist();  // first: whoever is told that the agent has gone finds its id free
  stream().no_more_answers();
}

bool Stream_Connection::expects(Loop_Time&) const { return inbound_->in_message(); }

bool Stream_Connection::idle_allowed() {
  stream().forget_given_up_calls();
  return dialed_ || stream().type() == Stream_Channel::AGENT || stream().awaits_answers() ||
         Connection::idle_allowed();
}

void Stream_Connection::tell(Connection_Watcher& watcher, const char* reason) {
  try {
    watcher.connection_closed(reason);
  } catch (...) {
    VEXA_ERROR("The end of a connection could not be told: %C\n", vexa::exception_text());
  }
}

void Stream_Connection::closing(const char* reason) {
  if (inbound_ != nullptr) inbound_->abandon_relay();
  if (const std::shared_ptr<Connection_Watcher> watcher = watcher_.lock()) {
    tell(*watcher, reason);  // before the calls end: who is told that they did can look
  }
}

void Stream_Connection::ended() {
  if (intake_) intake_->clear();
  inbound_.reset();
}

}  // namespace transport
