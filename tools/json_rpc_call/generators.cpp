#include "tools/json_rpc_call/generators.h"

#include "vexa/yajl_gen.h"

namespace {

bool write_params(YAJL_Gen& gen, JSON_Generator* params) {
  if (params == nullptr) return gen.ok();
  gen << "params";
  return gen.ok() && params->generate(gen.get());
}

}  // namespace

bool Agent_Params::generate_i(YAJL_Gen& gen) {
  const YAJL_Map_Guard map(gen);
  gen << "agent" << agent_ << "method" << method_;
  return write_params(gen, params_);
}

bool Notification::generate_i(YAJL_Gen& gen) {
  gen << "method" << method_;
  return write_params(gen, params_);
}
