#include "tools/json_rpc_call/outgoing_call.h"

#include <cstdio>
#include <utility>

namespace {

const char* const agent_method = "agent.call";

}  // namespace

Outgoing_Call::Outgoing_Call(const Options& options)
    : options_(options),
      method_(options.agent.empty() ? options.method : agent_method),
      input_(options.input, "PARAMS"),
      params_(input_),
      agent_params_(options.agent, options.method, options.has_input ? &params_ : nullptr) {}

bool Outgoing_Call::open(std::string& error) {
  if (!options_.has_input) return true;
  if (!input_.open(error)) return false;
  if (options_.retries != 0 && !input_.repeatable()) {
    error = "PARAMS cannot be read again for another attempt, as --retries wants";
    return false;
  }
  if (!input_.is_text() || params_.check()) return true;
  error = params_.error();
  return false;
}

JSON_Generator* Outgoing_Call::params() {
  if (!options_.agent.empty()) return &agent_params_;
  return options_.has_input ? &params_ : nullptr;
}

bool Outgoing_Call::read(json_spirit::Value& params, std::string& error) {
  json_spirit::Value own;
  if (options_.has_input && !params_.read(own)) {
    error = params_.error();
    return false;
  }
  if (options_.agent.empty()) {
    params = std::move(own);
    return true;
  }
  json_spirit::Object wrapped;
  wrapped["agent"] = options_.agent;
  wrapped["method"] = options_.method;
  if (options_.has_input) wrapped["params"] = std::move(own);
  params = std::move(wrapped);
  return true;
}

std::string Outgoing_Call::progress() const {
  if (!options_.has_input || params_.complete()) return std::string();
  char text[64];
  std::snprintf(text, sizeof text, "%.1f MB of the params sent",
                static_cast<double>(params_.bytes()) / 1e6);
  return text;
}
