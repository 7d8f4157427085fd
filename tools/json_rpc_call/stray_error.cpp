#include "tools/json_rpc_call/stray_error.h"

#include <mutex>
#include <utility>

#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_response_map.h"

struct Stray_Error::State {
  mutable std::mutex mutex;
  JSON_RPC_Object_var error;  // guarded by mutex
};

class Stray_Error::Handler final : public JSON_RPC_Handler {
public:
  explicit Handler(std::shared_ptr<State> state) : state_(std::move(state)) {}

  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var object) override {
    if (object->type != JSON_RPC_Object::TYPE_RESPONSE_ERROR) return -1;
    const std::lock_guard<std::mutex> guard(state_->mutex);
    state_->error = object;
    return 0;
  }

private:
  const std::shared_ptr<State> state_;
};

Stray_Error::Stray_Error() : state_(std::make_shared<State>()) {
  JSON_RPC_Response_Map::instance()->insert(json_spirit::Value(),
                                            JSON_RPC_Handler_var(new Handler(state_)));
}

Stray_Error::~Stray_Error() { JSON_RPC_Response_Map::instance()->remove(json_spirit::Value()); }

JSON_RPC_Object_var Stray_Error::get() const {
  const std::lock_guard<std::mutex> guard(state_->mutex);
  return state_->error;
}
