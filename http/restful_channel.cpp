#include "http/restful_channel.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "http/target.h"
#include "vexa/exception_text.h"
#include "vexa/json_writer.h"
#include "vexa/log.h"
#include "vexa/yajl_parse_handle.h"

namespace {

constexpr int internal_error = 500;

int fail(int error) {
  errno = error;
  return -1;
}

int copy_address(const ACE_INET_Addr& from, ACE_Addr& to) {
  if (to.get_type() != AF_INET && to.get_type() != AF_INET6) return fail(EAFNOSUPPORT);
  static_cast<ACE_INET_Addr&>(to) = from;
  return 0;
}

const char* phrase(int status) {
  switch (status) {
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 406:
      return "Not Acceptable";
    case 409:
      return "Conflict";
    case 410:
      return "Gone";
    case 412:
      return "Precondition Failed";
    case 413:
      return "Content Too Large";
    case 415:
      return "Unsupported Media Type";
    case 422:
      return "Unprocessable Content";
    case 429:
      return "Too Many Requests";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 503:
      return "Service Unavailable";
    default:
      return status < internal_error ? "Client Error" : "Server Error";
  }
}

/// Whether a text is one JSON value: 0, EINVAL or ENOMEM. A handler drives yajl's generator itself,
/// so it may have left it half-way, or driven it on after a failure.
int check_whole(const std::string& text) {
  YAJL_Parse_Handle parser;
  if (text.empty()) return EINVAL;
  if (!parser.open(nullptr, nullptr)) return ENOMEM;
  yajl_config(parser.get(), yajl_dont_validate_strings, 1);
  const bool whole = parser.feed(text.data(), text.size()) == yajl_status_ok &&
                     parser.feed(nullptr, 0) == yajl_status_ok;
  if (whole) return 0;
  return parser.is_open() ? EINVAL : ENOMEM;
}

}  // namespace

void Restful_Channel::Printer::print(const char* text, std::size_t length) {
  if (error_ != 0) return;
  if (length > limit_ - sink_.size()) {
    error_ = EMSGSIZE;
    return;
  }
  try {
    sink_.append(text, length);
  } catch (const std::bad_alloc&) {
    error_ = ENOMEM;  // for send_end() to tell: a handler need not look
  }
}

void Restful_Channel::Printer::stop() { error_ = ECANCELED; }

Restful_Channel::Restful_Channel(Http_Request_Head head, size_type prefix, std::size_t max_body,
                                 Restful_Answer answer)
    : head_(std::move(head)),
      answer_(std::move(answer)),
      whole_(body_, max_body),
      streamed_(body_, max_body) {
  // A handler looks for its own part behind uri_off(), so there must be one way only to write it.
  uri_off_ = http::encode_path(head_.path.substr(0, prefix)).size();
  head_.request.uri(http::to_uri(head_.path, head_.query));
}

Restful_Channel::~Restful_Channel() = default;

void Restful_Channel::finish(int result) {
  if (answered_) return;
  if (result != -1 && !streaming_ && (!body_.empty() || response_.status() != 0)) {
    answer(response_.status());
    return;
  }
  if (result != -1) {
    VEXA_ERROR("The handler of '%C' %C.\n", head_.request.uri(),
               streaming_ ? "did not end its answer" : "did not answer");
  }
  send_error(internal_error);
}

ssize_t Restful_Channel::write(const char* data, std::size_t length) {
  if (answered_) return fail(EALREADY);
  if (streaming_) return fail(EINPROGRESS);
  whole_.start();
  whole_.print(data, length);
  return whole_.error() == 0 ? static_cast<ssize_t>(length) : refuse_body(whole_.error());
}

/// Answers in place of a body that there was no room for.
int Restful_Channel::refuse_body(int error) {
  VEXA_ERROR(error == ENOMEM ? "There is no memory for the answer to '%C'.\n"
                             : "The answer to '%C' is too large.\n",
             head_.request.uri());
  send_error(internal_error);
  return fail(error);
}

int Restful_Channel::get_original_addr(ACE_Addr& addr) const {
  return copy_address(head_.remote, addr);
}
int Restful_Channel::get_local_addr(ACE_Addr& addr) { return copy_address(head_.local, addr); }
int Restful_Channel::get_remote_addr(ACE_Addr& addr) { return copy_address(head_.remote, addr); }

/// Whether a body may be begun; otherwise errno says why not.
bool Restful_Channel::may_begin() {
  if (!answered_ && !streaming_ && body_.empty()) return true;
  errno = answered_ ? EALREADY : EINPROGRESS;
  return false;
}

void Restful_Channel::drop_body() {
  streaming_ = false;
  streamed_.stop();
  body_.clear();
}

/// Answers a JSON body that was written; the result of the operation that wrote it.
int Restful_Channel::complete_json(int error, bool whole) {
  if (error != 0) return refuse_body(error);
  if (!whole) {
    drop_body();
    return fail(EINVAL);
  }
  answer_json();
  return 0;
}

template <typename Body>
int Restful_Channel::send_json(Body& body) {
  if (!may_begin()) return -1;
  whole_.start();
  try {
    const bool whole = JSON_Writer::write(body, whole_, false);
    return complete_json(whole_.error(), whole);
  } catch (...) {  // a generator's own
    drop_body();
    return fail(EINVAL);
  }
}

int Restful_Channel::send(const json_spirit::Value& body) { return send_json(body); }
int Restful_Channel::send(JSON_Generator& body) { return send_json(body); }

int Restful_Channel::send_error(int status) { return send_error(status, status); }

int Restful_Channel::send_error(int status, int code) { return send_error(status, code, nullptr); }

int Restful_Channel::send_error(int status, int code, const char* text) {
  if (answered_) return fail(EALREADY);
  drop_body();
  if (status < 400 || status > 599) status = internal_error;
  response_.status(status);
  try {
    json_spirit::Object error;
    error["code"] = code;
    error["message"] = text != nullptr ? text : phrase(status);
    json_spirit::Object body;
    body["error"] = std::move(error);
    // The limit is for what a handler makes: an error is small, and must get through.
    YAJL_String_Printer unlimited(body_);
    JSON_Writer::write(json_spirit::Value(std::move(body)), unlimited, false);
  } catch (const std::bad_alloc&) {
    body_.clear();  // the status says enough
  }
  response_.headers().remove(HTTP_HEAD_CONTENT_TYPE);
  answer_json();
  return 0;
}

int Restful_Channel::send_last_error(int status, const char* text) {
  const int error = errno;
  try {
    const std::string cause = std::generic_category().message(error);
    const std::string message = text != nullptr ? std::string(text) + ": " + cause : cause;
    return send_error(status, error, message.c_str());
  } catch (const std::bad_alloc&) {
    return send_error(status, error, text);
  }
}

yajl_gen_t* Restful_Channel::send_begin() {
  if (!may_begin()) return nullptr;
  // At another address than the one before: wrappers know by that whose failure is whose.
  std::unique_ptr<YAJL_Gen_Handle> next(new (std::nothrow) YAJL_Gen_Handle);
  if (next == nullptr || next->open(streamed_) == nullptr) {
    errno = ENOMEM;
    return nullptr;
  }
  gen_ = std::move(next);
  streamed_.start();
  streaming_ = true;
  return gen_->get();
}

int Restful_Channel::send_end() {
  if (answered_) return fail(EALREADY);
  if (!streaming_) return fail(EINVAL);
  const int error = streamed_.error();
  streaming_ = false;
  streamed_.stop();
  const int fault = error != 0 ? error : check_whole(body_);
  return complete_json(fault == EINVAL ? 0 : fault, fault != EINVAL);
}

/// Answers the body as JSON, unless the handler has said what it is.
void Restful_Channel::answer_json() {
  HTTP_Headers& headers = response_.headers();
  if (!body_.empty() && headers.get(HTTP_HEAD_CONTENT_TYPE) == nullptr) {
    headers.put(HTTP_HEAD_CONTENT_TYPE, "application/json");
  }
  answer(response_.status());
}

/// Lets the answer go. A status or fields that cannot be sent make it a 500.
void Restful_Channel::answer(int status) {
  if (status == 0) status = 200;
  HTTP_Headers headers = std::move(response_.headers());
  if (status < 200 || status > 599 || headers.refused()) {
    VEXA_ERROR("The handler of '%C' set a %C that cannot be sent.\n", head_.request.uri(),
               headers.refused() ? "header field" : "status");
    status = internal_error;
    headers.clear();
    body_.clear();
  }
  for (const int id : {HTTP_HEAD_CONTENT_LENGTH, HTTP_HEAD_CONNECTION, HTTP_HEAD_TRANSFER_ENCODING,
                       HTTP_HEAD_UPGRADE, HTTP_HEAD_KEEP_ALIVE, HTTP_HEAD_DATE}) {
    headers.remove(id);
  }
  if (status == 204 || status == 304) {
    body_.clear();
    headers.remove(HTTP_HEAD_CONTENT_TYPE);
  }
  answered_ = true;
  try {
    answer_(status, std::move(headers), std::move(body_));
  } catch (...) {  // nobody above could do anything about it
    VEXA_ERROR("An answer was lost on its way: %C\n", vexa::exception_text());
  }
}
