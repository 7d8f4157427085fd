#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_spirit/json_spirit_value.h"

/// Serves RESTful JSON requests of one URI. The host calls it; this library only keeps the
/// registries.
class JSON_RPC_EXPORT JSON_RESTful_Handler {
public:
  /// How the handler asks its host to run it.
  enum CONCURRENCY { INHERITED = 0, REACTIVE = 1, THREAD = 2, PROACTIVE = 3 };

  JSON_RESTful_Handler() = default;
  JSON_RESTful_Handler(const JSON_RESTful_Handler&) = delete;
  JSON_RESTful_Handler& operator=(const JSON_RESTful_Handler&) = delete;
  virtual ~JSON_RESTful_Handler();

  /// Called by whoever creates the handler, with the words of its record's params, and before it
  /// goes. As they stand, they do nothing and give 0.
  virtual int init(int argc, char** argv);
  virtual int fini();

  /// INHERITED, as it stands: run as the host runs what asks for nothing.
  virtual CONCURRENCY concurrency() const;

  /// Answers, over `channel` (borrowed), a request whose body is `body`, which the handler may take
  /// apart. 0, or -1.
  virtual int handle_request(JSON_RESTful_Channel* channel, json_spirit::Value& body) = 0;
};
