// "blob": {"bytes": n} answers with about n bytes, an array of texts of 1 KB, which it writes on
// the shared pool while they are sent: however many, they are never held.

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "json_rpc/json_rpc_generator.h"
#include "json_rpc/json_rpc_thread_pool_handler_impl.h"
#include "plugins/plugin.h"
#include "vexa/yajl_gen.h"

namespace {

constexpr std::size_t text_size = 1024;

/// The response, member by member.
class Blob_Response final : public JSON_RPC_Object_Generator {
public:
  Blob_Response(JSON_RPC_Channel& channel, const json_spirit::Value& id, std::uint64_t bytes)
      : channel_(channel), id_(id), bytes_(bytes), text_(text_size, 'x') {}

  bool generate_i(YAJL_Gen& gen) override {
    gen << "id" << id_ << "result";
    gen.array_open();
    for (std::uint64_t left = bytes_; left > 0 && wanted(left);) {
      const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(left, text_size));
      if (!gen.literal(std::string_view(text_).substr(0, size))) return false;
      left -= size;
    }
    return gen.array_close();
  }

private:
  /// Looks now and then whether the peer is there still: what is written for none is lost labour.
  bool wanted(std::uint64_t left) const {
    return left / text_size % 1024 != 0 || channel_.response_state() != HTTP_SOCK_STATE_CLOSED;
  }

  JSON_RPC_Channel& channel_;
  const json_spirit::Value& id_;
  const std::uint64_t bytes_;
  const std::string text_;
};

class Blob_Handler final : public JSON_RPC_Thread_Pool_Handler_Impl {
public:
  int handle_request(JSON_RPC_Channel* channel, JSON_RPC_Request& request) override {
    if (channel == nullptr) return -1;
    if (request.params.type() == json_spirit::obj_type) {
      const json_spirit::Object& params = request.params.get_obj();
      const auto bytes = params.find("bytes");
      if (bytes != params.end() && bytes->second.type() == json_spirit::int_type &&
          (bytes->second.is_uint64() || bytes->second.get_int64() >= 0)) {
        Blob_Response response(*channel, request.id, bytes->second.get_uint64());
        return channel->send(response);
      }
    }
    return plugin::refuse(*channel, request, "{\"bytes\": n} with n from 0 is expected");
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_blob(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Blob_Handler>(gobbler);
}
