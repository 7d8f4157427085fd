#pragma once

#include <cstddef>
#include <list>
#include <memory>

#include "json_rpc/json_rpc_object.h"
#include "transport/method_filter.h"
#include "transport/owed_request.h"
#include "transport/server_state.h"
#include "transport/stream_channel.h"
#include "transport/transport_export.h"

namespace transport {

/// What is done with the messages of one channel: requests are noted as owed, and all are
/// dispatched. While the channel owes its peer much, requests are parked, so that answers which
/// stand behind them still arrive: two ends that both waited for the other to read would wait for
/// ever. When too much is parked as well, further requests are refused where this end awaits
/// answers, and else the channel is not read. On the channel's loop.
class TRANSPORT_EXPORT Intake {
public:
  /// `debt` is told when a request of the channel goes without an answer. A request for a method
  /// that `filter` does not pass is answered as if there was none; null passes all.
  Intake(Stream_Channel& channel, const Server_State& state, std::weak_ptr<Answer_Debt> debt,
         std::shared_ptr<const Method_Filter> filter);

  /// Dispatches a message, or parks it; `bytes` is the length of its text.
  void message(const JSON_RPC_Object_var& object, std::size_t bytes);
  /// Dispatches what was parked, as far as the channel is not busy again.
  void dispatch_parked();
  void clear();

  /// Whether no more messages are wanted.
  bool overloaded() const;
  bool parked() const { return !parked_.empty(); }
  /// Whether what is parked can go on.
  bool ready() const { return parked() && !busy(); }

  /// The code of the error with which the last request was refused before it came to its handler,
  /// or because its handler had no room or failed; else 0.
  int refusal() const { return refusal_; }

private:
  struct Parked {
    JSON_RPC_Object_var object;
    std::size_t bytes;
  };

  bool parked_full() const;
  bool busy() const;
  void park(const JSON_RPC_Object_var& object, std::size_t bytes);
  void refuse(const json_spirit::Value& id);
  void await(const JSON_RPC_Object& request);
  bool passes(const JSON_RPC_Object& call) const;
  void answer_error(const json_spirit::Value& id, int code, const char* message);
  void dispatch(const JSON_RPC_Object_var& object);

  Stream_Channel& channel_;
  const Server_State& state_;
  const std::weak_ptr<Answer_Debt> debt_;
  const std::shared_ptr<const Method_Filter> filter_;

  // Calls that were read while the channel was busy, in their order, and the bytes that they cost.
  std::list<Parked> parked_;
  std::size_t parked_bytes_ = 0;
  std::size_t parked_requests_ = 0;
  std::size_t refused_ = 0;  // since there was room for more of them
  int refusal_ = 0;
};

}  // namespace transport
