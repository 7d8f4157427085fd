#include "tools/json_rpc_call/http_bench.h"

#include <memory>
#include <string>

#include "json_rpc/json_rpc_http_session.h"
#include "json_rpc/json_rpc_session.h"
#include "tools/json_rpc_call/bench.h"
#include "tools/json_rpc_call/http_client.h"
#include "tools/json_rpc_call/log_lines.h"
#include "tools/json_rpc_call/outgoing_call.h"
#include "tools/json_rpc_call/output.h"

namespace {

class Http_Caller final : public Bench_Caller {
public:
  Http_Caller(const HTTP_Session_var& session, const std::string& path,
              const JSON_RPC_Object_var& request)
      : session_(session, path.c_str(), 0, -1), request_(request) {}

  bool call(JSON_RPC_Object_var& answer, std::string& error) override {
    JSON_RPC_Id_Generator::gen(*request_);
    answer = session_.request(request_);
    if (answer.get() != nullptr) return true;
    error = Log_Lines::first_error();
    return false;
  }

private:
  JSON_RPC_HTTP_Session session_;
  const JSON_RPC_Object_var request_;  // goes out again and again, each time under a new id
};

}  // namespace

int bench_over_http(const Options& options, Http_Client& client) {
  Outgoing_Call outgoing(options);
  json_spirit::Value params;
  std::string error;
  if (!outgoing.open(error) || !outgoing.read(params, error)) return complain(error);
  return bench(options, [&] {
    JSON_RPC_Object_var request;
    JSON_RPC_Session::make_rpc_request(outgoing.method().c_str(), params, request);
    return std::make_unique<Http_Caller>(client.session(), options.http_url.path, request);
  });
}
