#include "tools/json_rpc_call/answer.h"

namespace {

json_spirit::Object object_of(const JSON_RPC_Response_Error& error) {
  json_spirit::Object object;
  object["code"] = error.code;
  object["message"] = error.message;
  if (!error.data.is_null()) object["data"] = error.data;
  return object;
}

}  // namespace

Outcome print_answer(const JSON_RPC_Object* answer, const Output_Style& style) {
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE) {
    return Outcome::done(print_value(static_cast<const JSON_RPC_Response*>(answer)->result, style));
  }
  if (answer != nullptr && answer->type == JSON_RPC_Object::TYPE_RESPONSE_ERROR) {
    const auto& error = static_cast<const JSON_RPC_Response_Error&>(*answer);
    return Outcome::done(print_error(object_of(error), style));
  }
  return Outcome::hopeless("the peer sent something else than an answer");
}
