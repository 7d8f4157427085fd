#pragma once

#include <memory>
#include <vector>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"

/// One message on its way to several channels. It lives on the stack of whoever sends, and names
/// the message to the channels' send() on this thread, so that the first of them can leave the text
/// that it made for the others:
///
///   JSON_RPC_Fan_Out* const fan_out = JSON_RPC_Fan_Out::current();
///   if (fan_out != nullptr && fan_out->object() == obj.get()) ... use or fill fan_out->prepared
///
/// The comparison is needed: a send() may send another message on its way. Fan-outs nest; the inner
/// one is current while it lives. For one thread alone.
///
/// It is declared before the lock of a registry, and the channels that it reached are let go when
/// the outermost fan-out of the thread ends: the last reference to one may go with it, but no
/// channel is destroyed while the lock is held.
class JSON_RPC_EXPORT JSON_RPC_Fan_Out {
public:
  /// `obj` is borrowed: it outlives this, and is not changed meanwhile.
  explicit JSON_RPC_Fan_Out(const JSON_RPC_Object_var& obj);
  /// Without a message: only holds what it, and fan-outs within it, reach.
  JSON_RPC_Fan_Out();
  ~JSON_RPC_Fan_Out();
  JSON_RPC_Fan_Out(const JSON_RPC_Fan_Out&) = delete;
  JSON_RPC_Fan_Out& operator=(const JSON_RPC_Fan_Out&) = delete;

  /// The innermost of this thread, or null.
  static JSON_RPC_Fan_Out* current();

  /// The message; null when the handle is empty.
  const JSON_RPC_Object* object() const { return obj_ != nullptr ? obj_->get() : nullptr; }

  /// The channel, alive at least as long as this; null when it is gone or memory is.
  JSON_RPC_Channel* reach(const JSON_RPC_Channel_ptr& channel) noexcept;

  /// Sends the message, which there is, over `channel`, if that can be reached. What send() gives
  /// is ignored: fanning out is fire and forget. An exception of send() is logged.
  void send(const JSON_RPC_Channel_ptr& channel);

  /// What the first channel prepared. A channel of another kind can have left it: `prepared_by`
  /// says whose it is, by an address that the kind chooses.
  std::shared_ptr<const void> prepared;
  const void* prepared_by = nullptr;

private:
  explicit JSON_RPC_Fan_Out(const JSON_RPC_Object_var* obj);

  const JSON_RPC_Object_var* const obj_;
  JSON_RPC_Fan_Out* const outer_;
  JSON_RPC_Fan_Out& outermost_;                // around this one another lock can be held still
  std::vector<JSON_RPC_Channel_var> reached_;  // of the outermost: by all within it
};
