// "solo": {"ms": n} sleeps on a thread of its own.

#include "json_rpc/json_rpc_thread_handler.h"
#include "plugins/pause.h"

namespace {

class Solo_Handler final : public JSON_RPC_Thread_Handler {
public:
  int handle_object_i(JSON_RPC_Channel_var channel, JSON_RPC_Object_var object) override {
    if (object->type != JSON_RPC_Object::TYPE_REQUEST) return 0;
    return plugin::pause_and_answer(*channel, static_cast<const JSON_RPC_Request&>(*object));
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_solo(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Solo_Handler>(gobbler);
}
