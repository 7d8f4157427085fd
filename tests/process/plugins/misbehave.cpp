// Handlers that do what handlers must not do, and what the host must bear.

#include <chrono>
#include <stdexcept>
#include <thread>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_thread_handler.h"
#include "json_rpc/json_rpc_thread_pool_handler_impl.h"
#include "plugins/plugin.h"
#include "vexa/yajl_handler.h"

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

/// Streams an answer of [n] numbers from the pool.
class Stream_Handler final : public JSON_RPC_Thread_Pool_Handler_Impl {
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override {
    if (channel == nullptr) return -1;
    yajl_gen_t* const gen = channel->send_begin();
    if (gen == nullptr) return -1;
    const auto name = [gen](const char* text) {
      yajl_gen_string(gen, reinterpret_cast<const unsigned char*>(text),
                      std::char_traits<char>::length(text));
    };
    yajl_gen_map_open(gen);
    name("id");
    yajl_gen_integer(gen, request.id.get_int64());
    name("result");
    yajl_gen_array_open(gen);
    const std::int64_t count = request.params.get_array().at(0).get_int64();
    for (std::int64_t i = 0; i < count; ++i) yajl_gen_integer(gen, i);
    yajl_gen_array_close(gen);
    yajl_gen_map_close(gen);
    return channel->send_end();
  }
};

class Throwing_Filter final : public YAJL_Handler {
  bool handle_number_i(const char*, std::size_t) override {
    throw std::runtime_error("thrown by a filter");
  }
};

/// Throws for the id 0; the filters for other ids do, at their first number.
class Throwing_Filter_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var request) override {
    if (request->id == json_spirit::Value(0)) throw std::runtime_error("thrown by a creator");
    return new (std::nothrow) Throwing_Filter;
  }
};

}  // namespace

#define FACTORY(NAME, BASE, CLASS)                                               \
  extern "C" JSON_RPC_PLUGIN_EXPORT BASE* make_##NAME(void (**gobbler)(void*)) { \
    return plugin::make<BASE, CLASS>(gobbler);                                   \
  }
FACTORY(throw, JSON_RPC_Handler, Throw_Handler)
FACTORY(pool_throw, JSON_RPC_Handler, Pool_Throw_Handler)
FACTORY(solo_throw, JSON_RPC_Handler, Solo_Throw_Handler)
FACTORY(forget, JSON_RPC_Handler, Forget_Handler)
FACTORY(filtered, JSON_RPC_Handler, Forget_Handler)
FACTORY(solo_forget, JSON_RPC_Handler, Solo_Forget_Handler)
FACTORY(twice, JSON_RPC_Handler, Twice_Handler)
FACTORY(hold, JSON_RPC_Handler, Hold_Handler)
FACTORY(stream, JSON_RPC_Handler, Stream_Handler)
FACTORY(throwing_filter, JSON_RPC_Params_Handler_Creator, Throwing_Filter_Creator)
