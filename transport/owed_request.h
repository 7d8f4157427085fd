#pragma once

#include <memory>

#include "json_rpc/json_rpc_object.h"

namespace transport {

/// Whoever owes the answers of a channel's requests.
class Answer_Debt {
public:
  virtual ~Answer_Debt() = default;
  /// A request with this id exists no longer: where that leaves an answer which nobody will give,
  /// -32603 is sent. Any thread; never throws.
  virtual void request_gone(const json_spirit::Value& id) noexcept = 0;
};

/// A request as the transport reads it. When the last handle goes while its id still awaits an
/// answer (a handler failed, forgot it, or was dropped with its queue), -32603 is sent. So a
/// handler that answers later keeps its message.
class Owed_Request final : public JSON_RPC_Request {
public:
  Owed_Request() = default;
  ~Owed_Request() override;

  /// The request is complete and its id awaits an answer of `debt`.
  void owe(const std::weak_ptr<Answer_Debt>& debt);

private:
  std::weak_ptr<Answer_Debt> debt_;
  json_spirit::Value owed_id_;  // the id as read: a forwarded request gets another
};

}  // namespace transport
