#include "http/restful_call.h"

#include <new>
#include <utility>

#include "http/media_type.h"
#include "vexa/exception_text.h"
#include "vexa/json_reader.h"
#include "vexa/log.h"

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
  if (!http::is_json(channel_.request()->headers(), true)) {
    channel_.send_error(415, 415, "The body must be JSON.");
    return false;
  }
  JSON_Reader reader;
  reader.result(&value);
  if (!reader.read(body_.data(), body_.size()) || !reader.end()) {
    if (reader.no_memory()) {
      channel_.send_error(503);
      return false;
    }
    channel_.send_error(400, 400, ("The body is not JSON: " + reader.error()).c_str());
    return false;
  }
  std::string().swap(body_);  // the handler may take its time, and needs the room
  return true;
}
