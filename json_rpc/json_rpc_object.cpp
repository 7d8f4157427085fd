#include "json_rpc/json_rpc_object.h"

#include <cstdio>

#include "vexa/uuid_string.h"

JSON_RPC_Object::JSON_RPC_Object(Type t) : type(t), version("2.0") {}
JSON_RPC_Object::~JSON_RPC_Object() = default;

JSON_RPC_Request::JSON_RPC_Request() : JSON_RPC_Object(TYPE_REQUEST) {}
JSON_RPC_Request::~JSON_RPC_Request() = default;

JSON_RPC_Response::JSON_RPC_Response(const JSON_RPC_Request* request)
    : JSON_RPC_Object(TYPE_RESPONSE) {
  if (request == nullptr) return;
  version = request->version;
  id = request->id;
}
JSON_RPC_Response::~JSON_RPC_Response() = default;

JSON_RPC_Response_Error::JSON_RPC_Response_Error()
    : JSON_RPC_Object(TYPE_RESPONSE_ERROR), code(JSON_RPC_INTERNAL_ERROR) {}
JSON_RPC_Response_Error::~JSON_RPC_Response_Error() = default;

JSON_RPC_Id::JSON_RPC_Id(const json_spirit::Value& id) {
  char text[32];
  switch (id.type()) {
    case json_spirit::str_type:
    case json_spirit::secure_str_type:
      val_ = id.get_str();
      return;
    case json_spirit::int_type:
      if (id.is_uint64()) {
        std::snprintf(text, sizeof text, "%ld", static_cast<long>(id.get_uint64()));
      } else {
        std::snprintf(text, sizeof text, "%d", static_cast<int>(id.get_int64()));
      }
      break;
    case json_spirit::real_type:
      std::snprintf(text, sizeof text, "%f", id.get_real());
      break;
    case json_spirit::null_type:
      val_ = "<null type>";
      return;
    default:
      val_ = "<invalid type>";
      return;
  }
  val_ = text;
}

JSON_RPC_Request_Dump::JSON_RPC_Request_Dump(const JSON_RPC_Request& request)
    : val_("JSON-RPC request (version='" + request.version + "', method='" + request.method +
           "', id='" + JSON_RPC_Id(request.id).c_str() + "')") {}

std::string JSON_RPC_Id_Generator::get() { return uuid_string(false); }

void JSON_RPC_Id_Generator::gen(JSON_RPC_Object& object) { object.id = get(); }

const char* json_rpc_error_message(int code) {
  static const Key_Value_T<int> table[] = {{"Parse error", JSON_RPC_PARSE_ERROR},
                                           {"Invalid Request", JSON_RPC_INVALID_REQUEST},
                                           {"Method not found", JSON_RPC_METHOD_NOT_FOUND},
                                           {"Invalid params", JSON_RPC_INVALID_PARAMS},
                                           {"Internal error", JSON_RPC_INTERNAL_ERROR},
                                           {nullptr, 0}};
  return get_key_value_entry(table, code).key;
}

ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Object, ACE_Recursive_Thread_Mutex>*
ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Object, ACE_Recursive_Thread_Mutex>::none() noexcept {
  // Never destroyed: handles may be made until the process is gone.
  alignas(
      ACE_Refcounted_Auto_Ptr_Rep) static unsigned char place[sizeof(ACE_Refcounted_Auto_Ptr_Rep)];
  static ACE_Refcounted_Auto_Ptr_Rep* const rep = new (place) ACE_Refcounted_Auto_Ptr_Rep(nullptr);
  return rep;
}
