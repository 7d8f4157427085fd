#pragma once

#include <string>

#include "json_rpc/json_rpc_export.h"
#include "vexa/json_generator.h"

/// Writes a message while it is produced: the envelope here, the members in the derived class's
/// generate_i. This path always writes version "2.0".
class JSON_RPC_EXPORT JSON_RPC_Object_Generator : public JSON_Generator {
public:
  /// The object, closed also when generate_i fails (unless yajl itself failed); generate_i's
  /// result.
  bool generate(yajl_gen_t* gen) override;
};

/// A request whose params are written by another generator, so that large params are never held.
/// Members come as "jsonrpc", "method", "id", "params"; "params" is always there.
class JSON_RPC_EXPORT JSON_RPC_Request_Generator : public JSON_RPC_Object_Generator {
public:
  /// A null method counts as empty, which generate refuses. `params` writes exactly one value and
  /// is borrowed until the request has been written; null writes null.
  JSON_RPC_Request_Generator(const char* method, JSON_Generator* params);

  /// The request's id, fresh from birth: a caller registers for the answer before it sends.
  const std::string& id() const { return id_; }

  bool generate_i(YAJL_Gen& gen) override;

private:
  std::string method_;
  std::string id_;
  JSON_Generator* params_;
};
