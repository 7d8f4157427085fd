#pragma once

#include <string>

#include "json_spirit/json_spirit_value.h"
#include "tools/json_rpc_call/generators.h"
#include "tools/json_rpc_call/input.h"
#include "tools/json_rpc_call/options.h"
#include "tools/json_rpc_call/params.h"

/// The method that the options name and its params, as they go out: wrapped for the agent, where
/// there is one. One thread, but for progress().
class Outgoing_Call {
public:
  /// Borrows the options.
  explicit Outgoing_Call(const Options& options);

  /// Opens the input; one that is a text is read once. False with a reason in `error`.
  bool open(std::string& error);

  const std::string& method() const { return method_; }

  /// Writes the params, once for each attempt; null when there are none.
  JSON_Generator* params();
  /// The same as a value; false with a reason in `error`.
  bool read(json_spirit::Value& params, std::string& error);

  /// What params() reads.
  Params& source() { return params_; }

  /// How far writing them has come, in a few words; "" when it is done. Any thread.
  std::string progress() const;

private:
  const Options& options_;
  const std::string method_;
  Input input_;
  Params params_;
  Agent_Params agent_params_;
};
