#include "json_rpc/json_rpc_parser.h"

#include <cerrno>
#include <cstring>

#include "vexa/json_limits.h"
#include "vexa/log.h"
#include "vexa/yajl_error.h"

namespace {

template <typename V>
struct Key2_Value_T {
  const char* key;
  std::size_t len;
  V value;
};

const Key2_Value_T<unsigned int> key_table_1[] = {{"jsonrpc", 7, JSON_RPC_Parser::VERSION_BIT},
                                                  {"id", 2, JSON_RPC_Parser::ID_BIT},
                                                  {"params", 6, JSON_RPC_Parser::PARAMS_BIT},
                                                  {"method", 6, JSON_RPC_Parser::METHOD_BIT},
                                                  {"result", 6, JSON_RPC_Parser::RESULT_BIT},
                                                  {"error", 5, JSON_RPC_Parser::ERROR_BIT},
                                                  {nullptr, 0, 0}};

const Key2_Value_T<unsigned int> key_table_2[] = {{"code", 4, JSON_RPC_Parser::CODE_BIT},
                                                  {"message", 7, JSON_RPC_Parser::MESSAGE_BIT},
                                                  {"data", 4, JSON_RPC_Parser::DATA_BIT},
                                                  {nullptr, 0, 0}};

template <typename V>
const Key2_Value_T<V>& get_key_value_entry(const Key2_Value_T<V>* table, const char* text,
                                           std::size_t length) {
  while (table->key != nullptr &&
         (table->len != length || text == nullptr || std::strncmp(table->key, text, length) != 0)) {
    ++table;
  }
  return *table;
}

// The members that may have a value of each type, at the top level and inside "error".
constexpr unsigned int captured = JSON_RPC_Parser::PARAMS_BIT | JSON_RPC_Parser::RESULT_BIT;
constexpr unsigned int null_top = JSON_RPC_Parser::ID_BIT | captured;
constexpr unsigned int number_top = JSON_RPC_Parser::ID_BIT | captured;
constexpr unsigned int string_top =
    JSON_RPC_Parser::VERSION_BIT | JSON_RPC_Parser::ID_BIT | JSON_RPC_Parser::METHOD_BIT | captured;
constexpr unsigned int map_top = captured | JSON_RPC_Parser::ERROR_BIT;
constexpr unsigned int number_in_error = JSON_RPC_Parser::CODE_BIT | JSON_RPC_Parser::DATA_BIT;
constexpr unsigned int string_in_error = JSON_RPC_Parser::MESSAGE_BIT | JSON_RPC_Parser::DATA_BIT;

}  // namespace

JSON_RPC_Parser::JSON_RPC_Parser() : err_(0), refused_(false), members_(0) {}
JSON_RPC_Parser::~JSON_RPC_Parser() = default;

bool JSON_RPC_Parser::open() {
  close();
  return handle_.open(get_yajl_default_callbacks(), static_cast<YAJL_Handler*>(this)) ||
         fail(ERROR_NO_HANDLE);
}

void JSON_RPC_Parser::close() {
  handle_.close();
  callback_type(CB_NONE);
  handler_ = nullptr;
  err_ = ERROR_NONE;
  states_.clear();
  refused_ = false;
  members_ = 0;
}

bool JSON_RPC_Parser::read(const char* data, std::size_t length) {
  if (!is_open()) return false;
  const bool more = data != nullptr && length != 0;
  errno = 0;
  const yajl_status status = handle_.feed(data, more ? length : 0);
  if (status == yajl_status_ok) return true;
  if (status == yajl_status_client_canceled || !is_open()) refused_ = true;
  if (refused_ && err_ == ERROR_NONE && errno == ENOMEM) err_ = ERROR_NO_MEMORY;
  report(more ? data : nullptr, more ? length : 0);
  return false;
}

void JSON_RPC_Parser::report(const char* data, std::size_t length) {
  const std::size_t level = states_.size();
  const unsigned long long key = level > 0 ? states_[level - 1].key : 0;
  const unsigned long long parent_key = level > 1 ? states_[level - 2].key : 0;
  VEXA_ERROR("Failed to parse JSON-RPC: %s, callback=%u, err=%u, level=%u, key=%u, parent_key=%u\n",
             YAJL_Error(handle_, true, data, length).c_str(),
             static_cast<unsigned int>(callback_type()), static_cast<unsigned int>(err_),
             static_cast<unsigned int>(level), static_cast<unsigned int>(key),
             static_cast<unsigned int>(parent_key));
}

std::size_t JSON_RPC_Parser::consumed() const {
  return is_open() ? yajl_get_bytes_consumed(handle_.get()) : 0;
}

bool JSON_RPC_Parser::handle_any(unsigned int allowed, const char* text, std::size_t length) {
  if (states_.empty()) return fail(ERROR_STRUCTURE);
  JSON_State& state = states_.back();
  if ((allowed & state.key) == 0) return fail(ERROR_MEMBER);
  state.masks |= state.key;
  return handle_key_i(static_cast<unsigned int>(state.key), text, length);
}

/// A scalar at level 1 or inside "error"; anything deeper is nobody's.
bool JSON_RPC_Parser::handle_scalar(unsigned int top, unsigned int in_error_mask, const char* text,
                                    std::size_t length) {
  if (states_.size() == 1) return handle_any(top, text, length);
  if (states_.size() == 2 && in_error()) return handle_any(in_error_mask, text, length);
  return true;
}

// What a parse handle says of keys and scalars goes to handler_ past here; events that others give
// are passed on.

bool JSON_RPC_Parser::handle_null_i() {
  if (handler_ != nullptr) return handler_->handle_null_i();
  if (states_.empty()) return fail(ERROR_STRUCTURE);
  return handle_scalar(null_top, DATA_BIT, nullptr, 0);
}

bool JSON_RPC_Parser::handle_boolean_i(bool value) {
  if (handler_ != nullptr) return handler_->handle_boolean_i(value);
  if (states_.empty()) return fail(ERROR_STRUCTURE);
  return handle_scalar(captured, DATA_BIT, nullptr, value ? 1 : 0);
}

// Kept: a number or string that is a whole text is taken and ignored, where null or a boolean
// fails.
bool JSON_RPC_Parser::handle_number_i(const char* text, std::size_t length) {
  if (handler_ != nullptr) return handler_->handle_number_i(text, length);
  return handle_scalar(number_top, number_in_error, text, length);
}

bool JSON_RPC_Parser::handle_string_i(const char* text, std::size_t length) {
  if (handler_ != nullptr) return handler_->handle_string_i(text, length);
  return handle_scalar(string_top, string_in_error, text, length);
}

bool JSON_RPC_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (handler_ != nullptr) return handler_->handle_map_key_i(text, length);
  if (states_.empty()) return fail(ERROR_STRUCTURE);
  if (states_.size() == 1) {
    states_.back().key = get_key_value_entry(key_table_1, text, length).value;
    members_ |= static_cast<unsigned int>(states_.back().key);
  } else if (states_.size() == 2) {
    states_.back().key = get_key_value_entry(key_table_2, text, length).value;
  }
  return true;
}

/// Whether one more level would make the value too deep: it began below the message, or, for an
/// error's data, below the error object.
inline bool JSON_RPC_Parser::too_deep() const {
  if (states_.size() <= vexa::max_value_depth) return false;
  const std::size_t around = states_.empty() || !in_error() ? 1 : 2;
  return states_.size() == vexa::max_value_depth + around;
}

/// An object or array opens where no handler is nested; `top` are the members that it may belong
/// to.
bool JSON_RPC_Parser::start(unsigned int top, bool map) {
  switch (states_.size()) {
    case 0:
      return map ? handle_key_i(0, nullptr, 0) : fail(ERROR_STRUCTURE);
    case 1:
      return handle_any(top, nullptr, 0);
    case 2:
      return !in_error() || handle_any(DATA_BIT, nullptr, 0);
    default:
      return true;
  }
}

bool JSON_RPC_Parser::handle_start_map_i() {
  if (too_deep()) return fail(ERROR_DEPTH);
  if (!(handler_ != nullptr ? handler_->handle_start_map_i() : start(map_top, true))) return false;
  states_.emplace_back(true, 0, 0);
  return true;
}

bool JSON_RPC_Parser::handle_start_array_i() {
  if (too_deep()) return fail(ERROR_DEPTH);
  if (!(handler_ != nullptr ? handler_->handle_start_array_i() : start(captured, false))) {
    return false;
  }
  states_.emplace_back(true, 0, 0);
  return true;
}

bool JSON_RPC_Parser::handle_end_map_i() {
  if (handler_ != nullptr && !handler_->handle_end_map_i()) return false;
  if (states_.empty()) return fail(ERROR_STRUCTURE);
  states_.pop_back();
  if (states_.empty()) {
    if (handle_key_i(0, nullptr, 0)) return true;
    VEXA_ERROR("Failed to handle end of map.\n");
    return false;
  }
  if (states_.size() == 1) {
    if (handle_any(map_top, nullptr, 0)) return true;
    VEXA_ERROR("Failed to handle end of internal map.\n");
    return false;
  }
  if (states_.size() == 2 && in_error()) {
    if (handle_any(DATA_BIT, nullptr, 0)) return true;
    VEXA_ERROR("Failed to handle end of error data map.\n");
    return false;
  }
  return true;
}

bool JSON_RPC_Parser::handle_end_array_i() {
  if (handler_ != nullptr && !handler_->handle_end_array_i()) return false;
  if (states_.size() < 2) return fail(ERROR_STRUCTURE);
  states_.pop_back();
  if (states_.size() == 1) return handle_any(captured, nullptr, 0);
  if (states_.size() == 2 && in_error()) return handle_any(DATA_BIT, nullptr, 0);
  return true;
}
