#pragma once

class JSON_RPC_Channel;
class JSON_RPC_Object;

namespace transport {

/// The message that is being dispatched on this thread, and where it came from: a notification is
/// not sent back there. A stack object around the dispatch.
class Current_Message {
public:
  Current_Message(const JSON_RPC_Channel* origin, const JSON_RPC_Object* object);
  ~Current_Message();
  Current_Message(const Current_Message&) = delete;
  Current_Message& operator=(const Current_Message&) = delete;

  /// Whether `object` is being dispatched on this thread and came from `channel`.
  static bool is(const JSON_RPC_Channel* channel, const JSON_RPC_Object* object);

private:
  const JSON_RPC_Channel* const origin_;
  const JSON_RPC_Object* const object_;
  const Current_Message* const outer_;
};

}  // namespace transport
