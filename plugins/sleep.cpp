// "sleep": {"ms": n} sleeps on the shared pool, so that the channel is served meanwhile.

#include "json_rpc/json_rpc_thread_pool_handler_impl.h"
#include "plugins/pause.h"

namespace {

class Sleep_Handler final : public JSON_RPC_Thread_Pool_Handler_Impl {
public:
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override {
    return channel == nullptr ? -1 : plugin::pause_and_answer(*channel, request);
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_sleep(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Sleep_Handler>(gobbler);
}
