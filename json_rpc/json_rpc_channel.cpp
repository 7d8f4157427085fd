#include "json_rpc/json_rpc_channel.h"

#include <ace/Guard_T.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "vexa/adopt.h"

namespace {

template <typename T>
T locked_copy(JSON_RPC_Channel::Lock& mutex, const T& field) {
  try {
    ACE_GUARD_RETURN(JSON_RPC_Channel::Lock, guard, mutex, T());
    return field;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return T();
  }
}

template <typename T>
void locked_replace(JSON_RPC_Channel::Lock& mutex, T& field, const T& value) {
  try {
    T fresh(value);  // before the guard, so the old value is destroyed after the unlock
    ACE_GUARD(JSON_RPC_Channel::Lock, guard, mutex);
    std::swap(field, fresh);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
}

}  // namespace

JSON_RPC_Channel::JSON_RPC_Channel() : type_(0) {}

JSON_RPC_Channel::JSON_RPC_Channel(const JSON_RPC_Channel& other) : type_(0) {
  ACE_GUARD(Lock, guard, other.mutex_);
  type_ = other.type_;
  id_ = other.id_;
  sess_id_ = other.sess_id_;
  version_ = other.version_;
}

JSON_RPC_Channel::~JSON_RPC_Channel() = default;

int JSON_RPC_Channel::put_forward_entry(JSON_RPC_Channel_ptr, const json_spirit::Value&) {
  return -1;
}

int JSON_RPC_Channel::get_forward_entry(int, JSON_RPC_Channel_ptr&, json_spirit::Value&) {
  return -1;
}

int JSON_RPC_Channel::forward(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) { return -1; }

int JSON_RPC_Channel::get_original_addr(ACE_Addr&) const { return -1; }

ACE_Lock* JSON_RPC_Channel::io_mutex() { return nullptr; }

int JSON_RPC_Channel::type() const { return locked_copy(mutex_, type_); }
void JSON_RPC_Channel::type(int type) { locked_replace(mutex_, type_, type); }

std::string JSON_RPC_Channel::id() const { return locked_copy(mutex_, id_); }
void JSON_RPC_Channel::id(const std::string& id) { locked_replace(mutex_, id_, id); }

std::string JSON_RPC_Channel::session_id() const { return locked_copy(mutex_, sess_id_); }
void JSON_RPC_Channel::session_id(const std::string& session_id) {
  locked_replace(mutex_, sess_id_, session_id);
}

json_spirit::Object JSON_RPC_Channel::version() const { return locked_copy(mutex_, version_); }
void JSON_RPC_Channel::version(const json_spirit::Object& version) {
  locked_replace(mutex_, version_, version);
}

int JSON_RPC_Channel::send_error(int code, const json_spirit::Value& id, const char* message,
                                 const json_spirit::Value& data) {
  try {
    std::unique_ptr<JSON_RPC_Response_Error> error(new (std::nothrow) JSON_RPC_Response_Error);
    if (error == nullptr) {
      errno = ENOMEM;
      return -1;
    }
    error->code = code;
    error->id = id;
    if (message == nullptr) message = json_rpc_error_message(code);
    if (message != nullptr) error->message = message;
    if (!data.is_null()) error->data = data;
    JSON_RPC_Object_var object;
    if (!vexa::adopt(object, static_cast<JSON_RPC_Object*>(error.release()))) return -1;
    return send(object);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

void JSON_RPC_Channel_Count::destroy(JSON_RPC_Channel* channel) noexcept { delete channel; }
