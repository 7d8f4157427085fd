#include "tools/json_rpc_call/http_call.h"

#include <utility>

#include "json_rpc/json_rpc_http_session.h"
#include "tools/json_rpc_call/attempts.h"
#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/generators.h"
#include "tools/json_rpc_call/http_client.h"
#include "tools/json_rpc_call/http_reply.h"
#include "tools/json_rpc_call/log_lines.h"
#include "tools/json_rpc_call/outgoing_call.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/progress.h"
#include "vexa/json_dump.h"

namespace {

/// A call, or a notification, by POST; one attempt after the other.
class Http_Call {
public:
  Http_Call(const Options& options, Http_Client& client)
      : options_(options),
        outgoing_(options),
        session_(client.session(), options.http_url.path.c_str(), 0, -1) {}

  bool open(std::string& error) { return outgoing_.open(error); }

  Outcome call() {
    json_spirit::Value document;
    HTTP_Response response;
    if (!exchange(response, &document)) return failure(response);
    return print_document(response, document, options_.style);
  }

  Outcome notify() {
    HTTP_Response response;
    if (!exchange(response, nullptr) || !is_success(response)) return failure(response);
    return Outcome::done(EXIT_ANSWERED);
  }

private:
  bool exchange(HTTP_Response& response, json_spirit::Value* document) {
    const Progress progress([this](std::chrono::seconds elapsed) {
      const std::string sending = outgoing_.progress();
      return (sending.empty() ? "waiting for the answer" : sending) + ", " +
             std::to_string(elapsed.count()) + " s";
    });
    Log_Lines::forget();
    HTTP_Request request(HTTP_METHOD_POST, options_.http_url.path.c_str());
    request.content_type("application/json");
    if (!options_.stream || outgoing_.params() == nullptr) {
      return exchange_held(request, response, document);
    }
    const std::string& method = outgoing_.method();
    if (options_.task == Options::NOTIFY) {
      Notification notification(method, outgoing_.params());
      return session_.request(request, notification, response, document);
    }
    JSON_RPC_Request_Generator generator(method.c_str(), outgoing_.params());
    return session_.request(request, generator, response, document);
  }

  /// With a body that is held, and so has a length.
  bool exchange_held(HTTP_Request& request, HTTP_Response& response, json_spirit::Value* document) {
    json_spirit::Value params;
    std::string ignored;  // the source keeps it
    const bool has_params = outgoing_.params() != nullptr;
    if (has_params && !outgoing_.read(params, ignored)) return false;
    json_spirit::Object message = JSON_RPC_HTTP_Session::make_json_rpc_body(
        outgoing_.method().c_str(), has_params ? &params : nullptr);
    if (options_.task == Options::NOTIFY) message.erase("id");
    const json_spirit::Value body(std::move(message));
    request.content_length(JSON_Dump(body).str().size());
    return session_.request(request, &body, response, document);
  }

  Outcome failure(const HTTP_Response& response) {
    const std::string& bad_params = outgoing_.source().error();
    if (!bad_params.empty()) return Outcome::hopeless(bad_params);
    const std::string reason = reason_of_http_failure(response);
    const bool again = response.status() == 0 || response.status() >= 500;
    return again ? Outcome::failed(reason) : Outcome::hopeless(reason);
  }

  const Options& options_;
  Outgoing_Call outgoing_;
  JSON_RPC_HTTP_Session session_;
};

}  // namespace

int call_over_http(const Options& options, Http_Client& client) {
  Http_Call call(options, client);
  std::string error;
  if (!call.open(error)) return complain(error);
  return attempt(options.retries, options.retry_seconds, [&] { return call.call(); });
}

int notify_over_http(const Options& options, Http_Client& client) {
  Http_Call call(options, client);
  std::string error;
  if (!call.open(error)) return complain(error);
  return attempt(options.retries, options.retry_seconds, [&] { return call.notify(); });
}
