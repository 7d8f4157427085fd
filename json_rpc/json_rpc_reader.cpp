#include "json_rpc/json_rpc_reader.h"

#include <cerrno>
#include <limits>
#include <new>
#include <string_view>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "vexa/adopt.h"
#include "vexa/log.h"
#include "vexa/number_to_value.h"
#include "vexa/yajl_gen.h"

using json_spirit::Value;

JSON_RPC_Reader::JSON_RPC_Reader()
    : handled_indirectly_(false), mode_(OBJECT_MODE), state_(STATE_INIT), lock_(nullptr) {}

JSON_RPC_Reader::~JSON_RPC_Reader() { release_lock(); }

bool JSON_RPC_Reader::open() {
  if (!JSON_RPC_Parser::open()) return false;
  clear();
  state_ = STATE_PARSING;
  return true;
}

void JSON_RPC_Reader::close() {
  JSON_RPC_Parser::close();
  clear();
}

void JSON_RPC_Reader::clear() {
  // First: the lock lives in the request channel, whose last owner this reader may be.
  release_lock();
  forward_parser_.generate_handle(nullptr);
  drop_owned_handler();
  handled_indirectly_ = false;
  state_ = STATE_INIT;
  id_ = Value();
  version_.clear();
  object_.reset();
  parser_.result(nullptr);
  channel_.reset();
  request_channel_.reset();
}

JSON_RPC_Request* JSON_RPC_Reader::make_request() {
  JSON_RPC_Request* const request = new (std::nothrow) JSON_RPC_Request;
  if (request == nullptr) errno = ENOMEM;
  return request;
}

bool JSON_RPC_Reader::handle_key_i(unsigned int key, const char* text, std::size_t length) {
  switch (key) {
    case 0:
      return callback_type() != CB_END_MAP || finish_forwarding();
    case VERSION_BIT:
      return handle_version_i(text, length);
    case ID_BIT:
      return handle_id_i(text, length);
    case PARAMS_BIT:
      return handle_params_i(text, length);
    case METHOD_BIT:
      return handle_method_i(text, length);
    case RESULT_BIT:
      return handle_result_i(text, length);
    case CODE_BIT:
      return handle_code_i(text, length);
    case MESSAGE_BIT:
      return handle_message_i(text, length);
    case DATA_BIT:
      return handle_data_i(text, length);
    default:  // "error" itself: its members make the object
      return true;
  }
}

bool JSON_RPC_Reader::handle_version_i(const char* text, std::size_t length) {
  version_.assign(text, length);
  if (built() != nullptr) built()->version = version_;
  return true;
}

bool JSON_RPC_Reader::handle_id_i(const char* text, std::size_t length) {
  switch (callback_type()) {
    case CB_NULL:
      id_ = Value();
      break;
    case CB_NUMBER:
      read_number(text, length, id_);
      if (id_.type() != json_spirit::int_type) return fail(ERROR_EVENT);
      break;
    case CB_STRING:
      id_ = Value(std::string_view(text, length));
      break;
    default:
      return fail(ERROR_EVENT);
  }
  if (built() != nullptr) {
    built()->id = id_;
    if (built()->type == JSON_RPC_Object::TYPE_NOTIFY)
      built()->type = JSON_RPC_Object::TYPE_REQUEST;
  }
  return true;
}

bool JSON_RPC_Reader::handle_method_i(const char* text, std::size_t length) {
  if (!prepare_request()) return false;
  object_as<JSON_RPC_Request>().method.assign(text, length);
  return true;
}

/// Whether the event is the end of a captured value, which no longer concerns the object.
bool JSON_RPC_Reader::value_ended() const {
  return callback_type() == CB_END_MAP || callback_type() == CB_END_ARRAY;
}

void JSON_RPC_Reader::drop_owned_handler() {
  if (handler_ != nullptr && handler_ == owned_handler_.get()) handler_ = nullptr;
  owned_handler_.reset();
}

bool JSON_RPC_Reader::handle_params_i(const char* text, std::size_t length) {
  if (value_ended()) {
    drop_owned_handler();
    handler_ = nullptr;
    return true;
  }
  if (mode_ & FORWARD_REQUEST_MODE) {
    const int forwarded = forward_request(text, length);
    if (forwarded != 0) return forwarded > 0;
  }
  if (mode_ & FILTER_REQUEST_MODE) {
    const int filtered = filter_request(text, length);
    if (filtered != 0) return filtered > 0;
  }
  return prepare_request() && capture(object_as<JSON_RPC_Request>().params, text, length);
}

bool JSON_RPC_Reader::handle_result_i(const char* text, std::size_t length) {
  if (value_ended()) {
    if (handler_ == &forward_parser_) return true;  // until the end of the message
    drop_owned_handler();
    handler_ = nullptr;
    return true;
  }
  if (mode_ & FORWARD_RESPONSE_MODE) {
    const int forwarded = forward_response(text, length);
    if (forwarded != 0) return forwarded > 0;
  }
  if (mode_ & FILTER_RESPONSE_MODE) {
    const int filtered = filter_response(text, length);
    if (filtered != 0) return filtered > 0;
  }
  return prepare_response() && capture(object_as<JSON_RPC_Response>().result, text, length);
}

bool JSON_RPC_Reader::handle_code_i(const char* text, std::size_t length) {
  const Value code = number_to_value(text, length);
  if (code.type() != json_spirit::int_type) return fail(ERROR_CODE);
  if (!prepare_response_error()) return false;
  object_as<JSON_RPC_Response_Error>().code = static_cast<std::int32_t>(code.get_int64());
  return true;
}

bool JSON_RPC_Reader::handle_message_i(const char* text, std::size_t length) {
  if (!prepare_response_error()) return false;
  object_as<JSON_RPC_Response_Error>().message.assign(text, length);
  return true;
}

bool JSON_RPC_Reader::handle_data_i(const char* text, std::size_t length) {
  if (value_ended()) {
    handler_ = nullptr;
    return true;
  }
  return prepare_response_error() &&
         capture(object_as<JSON_RPC_Response_Error>().data, text, length);
}

/// Takes over a new object of the kind that the current member needs.
bool JSON_RPC_Reader::take(JSON_RPC_Object* object) {
  if (!vexa::adopt(object_, object)) return fail(ERROR_NO_MEMORY);
  built()->version = version_;
  built()->id = id_;
  return true;
}

bool JSON_RPC_Reader::prepare_request() {
  if (built() != nullptr) {
    return built()->type == JSON_RPC_Object::TYPE_REQUEST ||
           built()->type == JSON_RPC_Object::TYPE_NOTIFY || fail(ERROR_EVENT);
  }
  if (!take(make_request())) return false;
  if (id_.is_null()) built()->type = JSON_RPC_Object::TYPE_NOTIFY;
  return true;
}

bool JSON_RPC_Reader::prepare_response() {
  if (built() != nullptr) {
    return built()->type == JSON_RPC_Object::TYPE_RESPONSE || fail(ERROR_EVENT);
  }
  return take(new (std::nothrow) JSON_RPC_Response(nullptr));
}

bool JSON_RPC_Reader::prepare_response_error() {
  if (built() != nullptr) {
    return built()->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR || fail(ERROR_EVENT);
  }
  return take(new (std::nothrow) JSON_RPC_Response_Error);
}

/// Puts the value of params, result or data into `target`: a scalar at once, a container while its
/// events come.
bool JSON_RPC_Reader::capture(Value& target, const char* text, std::size_t length) {
  switch (callback_type()) {
    case CB_NULL:
      target = Value();
      return true;
    case CB_BOOLEAN:
      target = Value(length != 0);
      return true;
    case CB_NUMBER:
      return read_number(text, length, target) || fail(ERROR_EVENT);
    case CB_STRING:
      target = Value(std::string_view(text, length));
      return true;
    case CB_START_MAP:
      target = Value(json_spirit::Object());
      break;
    case CB_START_ARRAY:
      target = Value(json_spirit::Array());
      break;
    default:
      return fail(ERROR_EVENT);
  }
  parser_.result(&target);
  handler_ = &parser_;
  return true;
}

/// The place where a request could be passed on while it is read: always declines.
int JSON_RPC_Reader::forward_request(const char*, std::size_t) { return 0; }

int JSON_RPC_Reader::filter_request(const char* text, std::size_t length) {
  if ((reported() & METHOD_BIT) == 0) return 0;
  if (built() == nullptr || (built()->type != JSON_RPC_Object::TYPE_NOTIFY &&
                             built()->type != JSON_RPC_Object::TYPE_REQUEST)) {
    return -1;
  }
  JSON_RPC_Params_Handler_Creator* const creator =
      JSON_RPC_Params_Handler_Map::instance()->find(object_as<JSON_RPC_Request>().method);
  if (creator == nullptr) return 0;
  owned_handler_.reset(creator->create(request_channel_, object_));
  if (owned_handler_ == nullptr) return -1;
  handler_ = owned_handler_.get();
  handled_indirectly_ = true;
  return replay_into_owned_handler(text, length);
}

int JSON_RPC_Reader::replay_into_owned_handler(const char* text, std::size_t length) {
  const bool accepted = handle_indirectly(text, length);
  // A scalar is complete with this event: none will come that says so.
  if (callback_type() != CB_START_MAP && callback_type() != CB_START_ARRAY) drop_owned_handler();
  return accepted ? 1 : -1;
}

int JSON_RPC_Reader::filter_response(const char* text, std::size_t length) {
  if ((reported() & ID_BIT) == 0 || id_.type() != json_spirit::int_type) return 0;
  if (built() == nullptr || (built()->type != JSON_RPC_Object::TYPE_RESPONSE &&
                             built()->type != JSON_RPC_Object::TYPE_RESPONSE_ERROR)) {
    return -1;
  }
  owned_handler_.reset(handler_);
  return replay_into_owned_handler(text, length);
}

int JSON_RPC_Reader::forward_response(const char* text, std::size_t length) {
  // What has become an object stays one, or it would be relayed and dispatched as well; an object
  // for a filter is no more than where its result goes.
  if (built() != nullptr && (mode_ & FILTER_RESPONSE_MODE) == 0) return 0;
  const unsigned int masks = reported();
  if ((masks & ID_BIT) == 0 || id_.type() != json_spirit::int_type) return 0;
  // Ids that this process handed out are positive ints; a larger number must not be cut down to
  // one.
  if (id_.is_uint64() || id_.get_int64() > std::numeric_limits<int>::max() ||
      id_.get_int64() < std::numeric_limits<int>::min()) {
    return 0;
  }
  const JSON_RPC_Channel_var channel(channel_);
  if (channel.null()) return 0;
  JSON_RPC_Channel_ptr requester;
  if (channel->get_forward_entry(static_cast<int>(id_.get_int64()), requester, id_) == -1) return 0;

  forward_parser_.generate_handle(nullptr);
  handler_ = &forward_parser_;
  state_ = STATE_FORWARDING;
  request_channel_ = requester;
  if (request_channel_.null()) {
    VEXA_ERROR("Abort forwarding JSON-RPC response, requester is gone.\n");
    return 1;
  }
  if (ACE_Lock* const lock = request_channel_->io_mutex()) {
    if (lock->acquire() == -1) {
      VEXA_ERROR("Failed to lock request channel, errno=%d, %m.\n", ACE_OS::last_error());
      return -1;
    }
    lock_ = lock;
  }
  yajl_gen_t* const gen = request_channel_->send_begin();
  if (gen == nullptr) {
    release_lock();  // Its owner goes with the next line.
    request_channel_.reset();
    return -1;
  }
  forward_parser_.generate_handle(gen);
  return forward_response_cached_attributes(masks, text, length) ? 1 : -1;
}

/// Begins the forwarded message with what came before "result", then replays that event.
bool JSON_RPC_Reader::forward_response_cached_attributes(unsigned int masks, const char* text,
                                                         std::size_t length) {
  YAJL_Forward_Handler& out = forward_parser_;
  if (!out.handle_start_map_i()) return false;
  if ((masks & VERSION_BIT) && (!out.handle_map_key_i("jsonrpc", 7) ||
                                !out.handle_string_i(version_.data(), version_.size()))) {
    return false;
  }
  return out.handle_map_key_i("id", 2) &&
         yajl_gen_value(out.generate_handle(), id_) == yajl_gen_status_ok &&
         out.handle_map_key_i("result", 6) && handle_indirectly(text, length);
}

/// Gives the current event to the nested handler.
bool JSON_RPC_Reader::handle_indirectly(const char* text, std::size_t length) {
  if (handler_ == nullptr) return fail(ERROR_EVENT);
  switch (callback_type()) {
    case CB_NULL:
      return handler_->handle_null_i();
    case CB_BOOLEAN:
      return handler_->handle_boolean_i(length != 0);
    case CB_NUMBER:
      return handler_->handle_number_i(text, length);
    case CB_STRING:
      return handler_->handle_string_i(text, length);
    case CB_START_MAP:
      return handler_->handle_start_map_i();
    case CB_START_ARRAY:
      return handler_->handle_start_array_i();
    default:
      return fail(ERROR_EVENT);
  }
}

/// The message has ended: a response that was really forwarded is finished and its requester let
/// go. A request channel that the owner set for params handlers is none of this.
bool JSON_RPC_Reader::finish_forwarding() {
  if (state_ != STATE_FORWARDING || (mode_ & FORWARD_RESPONSE_MODE) == 0 ||
      request_channel_.null()) {
    return true;
  }
  // A peer that was answered completely, whatever else failed, counts as served.
  const bool sent = request_channel_->send_end() != -1 ||
                    request_channel_->response_state() == HTTP_SOCK_STATE_CONTENT_SENT;
  if (!sent) VEXA_ERROR("Failed to forward response: failed to send end to channel.\n");
  forward_parser_.generate_handle(nullptr);
  release_lock();
  request_channel_.reset();
  handler_ = nullptr;
  return sent;
}

void JSON_RPC_Reader::release_lock() {
  if (lock_ == nullptr) return;
  if (lock_->release() == -1) {
    VEXA_ERROR("Failed to release request channel, errno=%d, %m.\n", ACE_OS::last_error());
  }
  lock_ = nullptr;
}
