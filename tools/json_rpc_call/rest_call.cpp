#include "tools/json_rpc_call/rest_call.h"

#include "json_rpc/http_form_post.h"
#include "json_rpc/json_restful_client.h"
#include "tools/json_rpc_call/attempts.h"
#include "tools/json_rpc_call/http_client.h"
#include "tools/json_rpc_call/http_reply.h"
#include "tools/json_rpc_call/input.h"
#include "tools/json_rpc_call/log_lines.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/params.h"
#include "tools/json_rpc_call/progress.h"

namespace {

/// Reads BODY where there is one; false with a reason in `error`.
bool read_body(const Options& options, json_spirit::Value& body, std::string& error) {
  if (!options.has_input) return true;
  Input input(options.input, "BODY");
  if (!input.open(error)) return false;
  Params reader(input);
  if (reader.read(body)) return true;
  error = reader.error();
  return false;
}

bool request(const Options& options, JSON_RESTful_Client& client, const json_spirit::Value* body,
             HTTP_Response& response, json_spirit::Value& reply) {
  HTTP_Request request(HTTP_METHOD_GET, options.http_url.path.c_str());
  if (options.method == "POST") return client.post(request, body, response, &reply);
  if (options.method == "PUT") return client.put(request, body, response, &reply);
  if (options.method == "DELETE") return client.del(request, response, &reply);
  return client.get(request, response, &reply);
}

/// Attempts to get a reply by operation(response, reply), and prints it.
template <typename Operation>
int exchange(const Options& options, Operation operation) {
  return attempt(options.retries, options.retry_seconds, [&] {
    Log_Lines::forget();
    HTTP_Response response;
    json_spirit::Value reply;
    bool whole;
    {
      const Progress progress([](std::chrono::seconds elapsed) {
        return "waiting for the reply, " + std::to_string(elapsed.count()) + " s";
      });
      whole = operation(response, reply);
    }
    return print_reply(response, whole, reply, options.style);
  });
}

}  // namespace

int call_rest(const Options& options, Http_Client& client) {
  json_spirit::Value body;
  std::string error;
  if (!read_body(options, body, error)) return complain(error);
  JSON_RESTful_Client rest(client.session(), false);
  rest.retries(0);
  rest.streaming(options.stream);
  const json_spirit::Value* const sent = options.has_input ? &body : nullptr;
  return exchange(options, [&](HTTP_Response& response, json_spirit::Value& reply) {
    return request(options, rest, sent, response, reply);
  });
}

int post_form(const Options& options, Http_Client& client) {
  return exchange(options, [&](HTTP_Response& response, json_spirit::Value& reply) {
    HTTP_Request request(HTTP_METHOD_POST, options.http_url.path.c_str());
    return http_post_urlencoded_form(client.session(), request, options.form, response, &reply);
  });
}
