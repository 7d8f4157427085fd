#pragma once

#include <memory>
#include <optional>

#include "transport/connection.h"
#include "transport/inbound.h"
#include "transport/intake.h"
#include "transport/link_options.h"
#include "transport/method_filter.h"

namespace transport {

/// Whoever opened a connection, and is told when it has closed. On the connection's loop.
class Connection_Watcher {
public:
  virtual ~Connection_Watcher() = default;
  /// `reason` is null when the peer closed, or the socket failed.
  virtual void connection_closed(const char* reason) = 0;
};

/// JSON-RPC in both directions: messages one after the other, as the framing tells them apart.
class TRANSPORT_EXPORT Stream_Connection final : public Connection, private Inbound::Sink {
public:
  explicit Stream_Connection(Opened opened);
  ~Stream_Connection() override;

  /// Registers the channel and begins to read; `leftover` is what was read already.
  void start(Stream_Channel::Type type, Framing framing,
             const std::shared_ptr<const Method_Filter>& filter,
             const std::string& leftover = std::string());
  /// The same where this end opened the connection: it is not closed for being idle, text that is
  /// no message is not answered, and `watcher` is told of the end.
  void start(const Link_Options& options, const std::weak_ptr<Connection_Watcher>& watcher);

private:
  void begin_reading(const std::string& leftover,
                     const std::shared_ptr<const Method_Filter>& filter);
  void message(const JSON_RPC_Object_var& object, std::size_t bytes) override;
  bool overloaded() const override { return intake_->overloaded(); }

  bool consume(const char* data, std::size_t length) override;
  bool go_on_after(Inbound::Verdict verdict, const char* rest, std::size_t length);
  void turn_ends() override { inbound_->pass_on_relay(); }
  void end_of_input() override;
  void try_resume() override;
  bool can_go_on() const override;
  void give_up_owed() override { intake_->clear(); }
  bool owes_more() const override { return intake_->parked(); }
  bool abrupt() const override { return abrupt_; }
  bool expects(Loop_Time& since) const override;
  bool idle_allowed() override;
  void closing(const char* reason) override;
  void ended() override;
  void no_more_answers(const char* reason);
  static void tell(Connection_Watcher& watcher, const char* reason);

  bool dialed_ = false;                        // this end opened the connection
  bool abrupt_ = false;                        // it does not linger
  bool relay_waits_ = false;                   // where it is paused: for the relay's requester
  std::weak_ptr<Connection_Watcher> watcher_;  // where dialed_
  std::optional<Intake> intake_;               // from start() on
  std::unique_ptr<Inbound> inbound_;           // from start() until it has ended
};

}  // namespace transport
