#include "json_rpc/json_rpc_generator.h"

#include "json_rpc/json_rpc_object.h"
#include "vexa/log.h"
#include "vexa/yajl_gen.h"

bool JSON_RPC_Object_Generator::generate(yajl_gen_t* gen) {
  VEXA_CHECK(gen != nullptr, "gen is NULL", false);
  YAJL_Gen writer(gen, false);
  bool written;
  {
    const YAJL_Map_Guard map(writer);
    writer << "jsonrpc"
           << "2.0";
    written = generate_i(writer);
  }
  return written && writer.ok();
}

JSON_RPC_Request_Generator::JSON_RPC_Request_Generator(const char* method, JSON_Generator* params)
    : method_(method == nullptr ? "" : method),
      id_(JSON_RPC_Id_Generator::get()),
      params_(params) {}

bool JSON_RPC_Request_Generator::generate_i(YAJL_Gen& gen) {
  VEXA_CHECK(!method_.empty(), "method_ is empty", false);
  gen << "method" << method_ << "id" << id_ << "params";
  if (params_ == nullptr) return gen.null();
  return gen.ok() && params_->generate(gen.get());
}
