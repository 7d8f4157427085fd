// Handlers that do what handlers must not do, and what the host must bear.

#include <chrono>
#include <stdexcept>
#include <thread>

#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler.h"
#include "plugins/plugin.h"

namespace {

class Throw_Handler final : public JSON_RPC_Handler {
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    throw std::runtime_error("thrown on the loop");
  }
};

class Pool_Throw_Handler final : public JSON_RPC_Thread_Pool_Handler {
  int handle_object_i(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    throw std::runtime_error("thrown on the pool");
  }
};

class Solo_Throw_Handler final : public JSON_RPC_Thread_Handler {
  int handle_object_i(JSON_RPC_Channel_var, JSON_RPC_Object_var) override { throw 5; }
};

class Forget_Handler final : public JSON_RPC_Handler {
  int handle_object(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return 0; }
};

class Solo_Forget_Handler final : public JSON_RPC_Thread_Handler {
  int handle_object_i(JSON_RPC_Channel_var, JSON_RPC_Object_var) override { return 0; }
};

/// Answers 1, then 2, and returns -1 on top of it.
class Twice_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    plugin::answer(channel, request, 1);
    plugin::answer(channel, request, 2);
    return -1;
  }
};

/// Holds the thread that reads for [ms], then answers.
class Hold_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    std::this_thread::sleep_for(
        std::chrono::milliseconds(request.params.get_array().at(0).get_int64()));
    return plugin::answer(channel, request, true);
  }
};

}  // namespace

#define FACTORY(NAME, CLASS)                                                                 \
  extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_##NAME(void (**gobbler)(void*)) { \
    return plugin::make<JSON_RPC_Handler, CLASS>(gobbler);                                   \
  }
FACTORY(throw, Throw_Handler)
FACTORY(pool_throw, Pool_Throw_Handler)
FACTORY(solo_throw, Solo_Throw_Handler)
FACTORY(forget, Forget_Handler)
FACTORY(solo_forget, Solo_Forget_Handler)
FACTORY(twice, Twice_Handler)
FACTORY(hold, Hold_Handler)
