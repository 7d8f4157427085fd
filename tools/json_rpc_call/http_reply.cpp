#include "tools/json_rpc_call/http_reply.h"

#include <string>

#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/log_lines.h"

namespace {

std::string status_text(const HTTP_Response& response) {
  return "the server answers with status " + std::to_string(response.status());
}

}  // namespace

bool is_success(const HTTP_Response& response) {
  return response.status() >= 200 && response.status() <= 299;
}

std::string reason_of_http_failure(const HTTP_Response& response) {
  if (response.status() != 0 && !is_success(response)) return status_text(response);
  const std::string& logged = Log_Lines::first_error();
  return logged.empty() ? "no answer came" : logged;
}

Outcome print_reply(const HTTP_Response& response, bool whole, const json_spirit::Value& body,
                    const Output_Style& style) {
  if (response.status() == 0) return Outcome::failed(reason_of_http_failure(response));
  if (is_success(response)) {
    return whole ? Outcome::done(print_value(body, style))
                 : Outcome::hopeless(reason_of_http_failure(response));
  }
  complain(status_text(response));
  if (whole && !body.is_null()) print_error(body, style);
  return Outcome::done(EXIT_ERROR);
}

Outcome print_document(const HTTP_Response& response, const json_spirit::Value& document,
                       const Output_Style& style) {
  if (document.type() == json_spirit::obj_type) {
    const json_spirit::Object& members = document.get_obj();
    const auto error = members.find("error");
    if (error != members.end() && !error->second.is_null()) {
      return Outcome::done(print_error(error->second, style));
    }
    const auto result = members.find("result");
    if (result != members.end()) return Outcome::done(print_value(result->second, style));
  }
  if (!is_success(response)) return Outcome::failed(status_text(response));
  return Outcome::hopeless("what the server sent is no JSON-RPC response");
}
