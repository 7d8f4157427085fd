// "echo": the result is the params.

#include "plugins/plugin.h"

namespace {

class Echo_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    return plugin::answer(channel, request, request.params);
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_echo(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Echo_Handler>(gobbler);
}
