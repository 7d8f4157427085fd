#include "http/restful_call.h"

#include <new>
#include <string_view>
#include <utility>

#include "vexa/exception_text.h"
#include "vexa/http_text.h"
#include "vexa/json_reader.h"
#include "vexa/log.h"

namespace {

/// Whether the fields say that the body is JSON, and nothing around it.
bool is_json(const HTTP_Headers& headers) {
  const char* const coding = headers.get(HTTP_HEAD_CONTENT_ENCODING);
  if (coding != nullptr && !vexa::ascii_iequal(vexa::trim(coding), "identity")) return false;
  const char* const field = headers.get(HTTP_HEAD_CONTENT_TYPE);
  if (field == nullptr) return false;
  std::string_view rest(field);
  const std::string_view type = vexa::trim(vexa::take_item(rest, ';'));
  constexpr std::string_view suffix = "+json";
  return vexa::ascii_iequal(type, "application/json") ||
         (type.size() > suffix.size() &&
          vexa::ascii_iequal(type.substr(type.size() - suffix.size()), suffix));
}

}  // namespace

Restful_Call::Restful_Call(JSON_RESTful_Handler& handler, Http_Request_Head head,
                           std::size_t prefix, std::string body, std::size_t max_answer,
                           Restful_Answer answer)
    : JSON_RPC_Object(TYPE_NONE),
      handler_(handler),
      body_(std::move(body)),
      channel_(std::move(head), prefix, max_answer, std::move(answer)) {}

Restful_Call::~Restful_Call() {
  if (channel_.is_answered()) return;
  channel_.response()->headers().put(HTTP_HEAD_RETRY_AFTER, "1");
  channel_.send_error(503);
}

void Restful_Call::run() noexcept {
  int result = -1;
  try {
    json_spirit::Value value;
    if (!read_body(value)) return;
    result = handler_.handle_request(&channel_, value);
  } catch (...) {
    VEXA_ERROR("The handler of '%C' threw an exception: %C\n", channel_.request()->uri(),
               vexa::exception_text());
    result = -1;
  }
  channel_.finish(result);
}

/// False when the body was refused.
bool Restful_Call::read_body(json_spirit::Value& value) {
  if (body_.empty()) return true;
  if (!is_json(channel_.request()->headers())) {
    channel_.send_error(415, 415, "The body must be JSON.");
    return false;
  }
  JSON_Reader reader;
  reader.result(&value);
  if (!reader.read(body_.data(), body_.size()) || !reader.end()) {
    channel_.send_error(400, 400, ("The body is not JSON: " + reader.error()).c_str());
    return false;
  }
  std::string().swap(body_);  // the handler may take its time, and needs the room
  return true;
}
