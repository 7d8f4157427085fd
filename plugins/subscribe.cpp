// "subscribe" and "unsubscribe": {"subjects": [...]} names the notifications that the calling
// channel is to get, or no longer. A channel gets a subject once, however often it asks. The result
// is true.

#include <algorithm>
#include <utility>

#include "json_rpc/json_rpc_notify_manager.h"
#include "plugins/plugin.h"

namespace {

typedef JSON_RPC_Notify_Manager::subjects_type Subjects;

bool read_subjects(const json_spirit::Value& params, Subjects& subjects) {
  if (params.type() != json_spirit::obj_type) return false;
  const auto member = params.get_obj().find("subjects");
  if (member == params.get_obj().end() || member->second.type() != json_spirit::array_type) {
    return false;
  }
  for (const json_spirit::Value& subject : member->second.get_array()) {
    if (subject.type() != json_spirit::str_type) return false;
    subjects.push_back(subject.get_str());
  }
  std::sort(subjects.begin(), subjects.end());
  subjects.erase(std::unique(subjects.begin(), subjects.end()), subjects.end());
  return true;
}

/// Both methods: they differ in what becomes of the subjects.
class Subjects_Handler : public JSON_RPC_Handler {
public:
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var object) override {
    if (object->type != JSON_RPC_Object::TYPE_REQUEST) return 0;
    const JSON_RPC_Channel_var requester(channel);
    if (requester.null()) return -1;
    const JSON_RPC_Request& request = static_cast<const JSON_RPC_Request&>(*object);
    Subjects subjects;
    if (!read_subjects(request.params, subjects)) {
      return plugin::refuse(*requester, request, "{\"subjects\": [texts]} is expected");
    }
    if (change(*JSON_RPC_Notify_Manager::instance(), channel, subjects) != 0) return -1;
    return plugin::answer(*requester, request, true);
  }

private:
  virtual int change(JSON_RPC_Notify_Manager& manager, const JSON_RPC_Channel_ptr& channel,
                     const Subjects& subjects) = 0;
};

class Subscribe_Handler final : public Subjects_Handler {
  int change(JSON_RPC_Notify_Manager& manager, const JSON_RPC_Channel_ptr& channel,
             const Subjects& subjects) override {
    return manager.unsubscribe(channel, subjects) == 0 ? manager.subscribe(channel, subjects) : -1;
  }
};

class Unsubscribe_Handler final : public Subjects_Handler {
  int change(JSON_RPC_Notify_Manager& manager, const JSON_RPC_Channel_ptr& channel,
             const Subjects& subjects) override {
    return manager.unsubscribe(channel, subjects);
  }
};

}  // namespace

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_subscribe(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Subscribe_Handler>(gobbler);
}

extern "C" JSON_RPC_PLUGIN_EXPORT JSON_RPC_Handler* make_unsubscribe(void (**gobbler)(void*)) {
  return plugin::make<JSON_RPC_Handler, Unsubscribe_Handler>(gobbler);
}
