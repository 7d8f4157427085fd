// "channels": the registered channels, each as {"type": n, "id": text, "address": text}.

#include "json_rpc/json_rpc_channel_map.h"
#include "plugins/plugin.h"
#include "vexa/addr_string.h"

namespace {

class Channels_Handler final : public plugin::Answering_Handler {
  int handle_request(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) override {
    JSON_RPC_Channel_Map::Channel_Infos infos;
    if (JSON_RPC_Channel_Map::instance()->channel_infos(infos, 0) != 0) return -1;
    json_spirit::Array list;
    for (const JSON_RPC_Channel_Map::Channel_Info& info : infos) {
      json_spirit::Object entry;
      entry["type"] = info.type;
      entry["id"] = info.id;
      entry["address"] = ACE_Addr_String(info.remote_addr, true).c_str();
      list.push_back(std::move(entry));
    }
    return plugin::answer(channel, request, std::move(list));
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_channels(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Channels_Handler>(gobbler);
}
