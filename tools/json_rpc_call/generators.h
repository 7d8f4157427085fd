#pragma once

#include <string>
#include <utility>

#include "json_rpc/json_rpc_generator.h"
#include "vexa/json_generator.h"

/// What "agent.call" takes: {"agent": ..., "method": ..., "params": ...}, the last only where there
/// are some.
class Agent_Params final : public JSON_Generator {
public:
  /// `params` is borrowed and may be null.
  Agent_Params(std::string agent, std::string method, JSON_Generator* params)
      : agent_(std::move(agent)), method_(std::move(method)), params_(params) {}

  bool generate_i(YAJL_Gen& gen) override;

private:
  const std::string agent_;
  const std::string method_;
  JSON_Generator* const params_;
};

/// A notification, with params where there are some.
class Notification final : public JSON_RPC_Object_Generator {
public:
  /// `params` is borrowed and may be null.
  Notification(std::string method, JSON_Generator* params)
      : method_(std::move(method)), params_(params) {}

  bool generate_i(YAJL_Gen& gen) override;

private:
  const std::string method_;
  JSON_Generator* const params_;
};
