// "count": how many elements an array has, of any size: a params filter counts them as they are
// read and leaves the number in the request's params, which the handler answers.

#include <cstdint>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "plugins/plugin.h"
#include "vexa/yajl_handler.h"

namespace {

/// Counts the elements of the array that the params are. Anything else leaves the params null.
class Count_Filter final : public YAJL_Handler {
public:
  explicit Count_Filter(const JSON_RPC_Object_var& request) : request_(request) {}

  bool handle_null_i() override { return element(); }
  bool handle_boolean_i(bool) override { return element(); }
  bool handle_number_i(const char*, std::size_t) override { return element(); }
  bool handle_string_i(const char*, std::size_t) override { return element(); }
  bool handle_start_map_i() override {
    element();
    ++depth_;
    return true;
  }
  bool handle_end_map_i() override {
    --depth_;
    return true;
  }
  bool handle_start_array_i() override {
    if (depth_ == 0) array_ = true;
    return handle_start_map_i();
  }
  bool handle_end_array_i() override {
    if (--depth_ == 0) static_cast<JSON_RPC_Request&>(*request_).params = count_;
    return true;
  }

private:
  bool element() {
    if (array_ && depth_ == 1) ++count_;
    return true;
  }

  const JSON_RPC_Object_var request_;
  bool array_ = false;
  unsigned int depth_ = 0;
  std::int64_t count_ = 0;
};

class Count_Filter_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var request) override {
    return new (std::nothrow) Count_Filter(request);
  }
};

class Count_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    if (request.params.type() != json_spirit::int_type) {
      return plugin::refuse(channel, request, "an array is expected, after the method's name");
    }
    return plugin::answer(channel, request, request.params);
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Params_Handler_Creator* make_count_filter(
    void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Params_Handler_Creator, Count_Filter_Creator>(gobbler);
}

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_count(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Count_Handler>(gobbler);
}
