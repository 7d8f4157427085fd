#pragma once

#include <ace/Recursive_Thread_Mutex.h>
#include <ace/Refcounted_Auto_Ptr.h>

#include <cstdint>
#include <string>

#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/atomic_rep_t.h"

/// A message of the JSON-RPC 2.0 standard, of the kind that `type` names. Plain fields, no lock:
/// built by one thread, then handed on through JSON_RPC_Object_var and not changed any more.
class JSON_RPC_EXPORT JSON_RPC_Object {
public:
  enum Type {
    TYPE_NONE = 0,
    TYPE_NOTIFY = 1,   ///< a JSON_RPC_Request without an id to answer
    TYPE_REQUEST = 2,  ///< a JSON_RPC_Request
    TYPE_RESPONSE = 3,
    TYPE_RESPONSE_ERROR = 4
  };

  explicit JSON_RPC_Object(Type t);
  JSON_RPC_Object(const JSON_RPC_Object&) = default;
  virtual ~JSON_RPC_Object();

  Type type;
  std::string version;    ///< the "jsonrpc" member: "2.0", or what was read, "" where none was
  json_spirit::Value id;  ///< the id to echo, or the id answered; null until set
};

/// A request, or, once `type` is TYPE_NOTIFY, a notification.
class JSON_RPC_EXPORT JSON_RPC_Request : public JSON_RPC_Object {
public:
  JSON_RPC_Request();
  JSON_RPC_Request(const JSON_RPC_Request&) = default;
  ~JSON_RPC_Request() override;

  std::string method;
  json_spirit::Value params;  ///< null: the message has no params member
};

class JSON_RPC_EXPORT JSON_RPC_Response : public JSON_RPC_Object {
public:
  /// Answers `request`: takes over its version and id. Null leaves "2.0" and a null id.
  explicit JSON_RPC_Response(const JSON_RPC_Request* request);
  JSON_RPC_Response(const JSON_RPC_Response&) = default;
  ~JSON_RPC_Response() override;

  json_spirit::Value result;
};

class JSON_RPC_EXPORT JSON_RPC_Response_Error : public JSON_RPC_Object {
public:
  JSON_RPC_Response_Error();
  JSON_RPC_Response_Error(const JSON_RPC_Response_Error&) = default;
  ~JSON_RPC_Response_Error() override;

  std::int32_t code;  ///< -32603 until set
  std::string message;
  json_spirit::Value data;  ///< null: the error has no data member
};

template <>
class ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Object, ACE_Recursive_Thread_Mutex>
    : public vexa::Atomic_Rep_T<JSON_RPC_Object> {
public:
  using Atomic_Rep_T::Atomic_Rep_T;
  JSON_RPC_EXPORT static ACE_Refcounted_Auto_Ptr_Rep* none() noexcept;
};

/// The shared handle of a message. Fill one with vexa::adopt, never with `new` in place.
typedef ACE_Refcounted_Auto_Ptr<JSON_RPC_Object, ACE_Recursive_Thread_Mutex> JSON_RPC_Object_var;

/// The printable form of an id for log lines. Kept: a signed integer prints as its low 32 bits, an
/// unsigned one as a signed 64-bit number.
class JSON_RPC_EXPORT JSON_RPC_Id {
public:
  explicit JSON_RPC_Id(const json_spirit::Value& id);
  const char* c_str() const { return val_.c_str(); }

private:
  std::string val_;
};

/// A request in one line for log lines: version, method and id.
class JSON_RPC_EXPORT JSON_RPC_Request_Dump {
public:
  explicit JSON_RPC_Request_Dump(const JSON_RPC_Request& request);
  const char* c_str() const { return val_.c_str(); }

private:
  std::string val_;
};

/// Makes the ids of this process's own requests: UUID texts (RFC 9562, version 4). Any thread.
class JSON_RPC_EXPORT JSON_RPC_Id_Generator {
public:
  static std::string get();
  /// Replaces the object's id by a fresh one.
  static void gen(JSON_RPC_Object& object);
};

/// The error codes of the JSON-RPC 2.0 standard.
enum JSON_RPC_Error_Code : std::int32_t {
  JSON_RPC_PARSE_ERROR = -32700,
  JSON_RPC_INVALID_REQUEST = -32600,
  JSON_RPC_METHOD_NOT_FOUND = -32601,
  JSON_RPC_INVALID_PARAMS = -32602,
  JSON_RPC_INTERNAL_ERROR = -32603
};

/// The standard's text of a code, or null for any other code.
JSON_RPC_EXPORT const char* json_rpc_error_message(int code);

/// A row of a table that ends with a row whose key is null.
template <typename V>
struct Key_Value_T {
  const char* key;
  V value;
};

/// The first row with that value, or the end row.
template <typename V>
const Key_Value_T<V>& get_key_value_entry(const Key_Value_T<V>* table, V value) {
  while (table->key != nullptr && table->value != value) ++table;
  return *table;
}
