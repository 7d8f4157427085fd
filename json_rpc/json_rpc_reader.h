#pragma once

#include <ace/Lock.h>

#include <memory>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"
#include "json_rpc/json_rpc_parser.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/json_parser.h"
#include "vexa/yajl_forward_handler.h"

/// Builds one message object per JSON text while its bytes stream in:
///
///   reader.open(); reader.mode(...); reader.channel(weak);
///   while (bytes come) if (!reader.read(data, length)) ...;
///   dispatcher->dispatch(weak, reader.object()); reader.close();
///
/// The first member that needs an object decides its kind: "method" or "params" a request (without
/// an id so far: a notification), "result" a response, a member of "error" an error response. Kept:
/// an id that comes after "method" makes a request even when it is null; one that came before it
/// leaves a notification. A member of another kind than the object's is refused (ERROR_EVENT).
///
/// With FORWARD_RESPONSE_MODE a response whose id stands among the channel's forwarded requests is
/// copied, event by event, to the requester under the requester's own id; with FILTER_REQUEST_MODE
/// the params of a method with a params handler go to that handler. Either way no tree of it is
/// built.
///
/// One reader belongs to one channel and one thread. While a response is forwarded the reader holds
/// the requester's io_mutex(), where it has one: whoever abandons a message closes, clears, reopens
/// or destroys the reader, on the thread that read.
class JSON_RPC_EXPORT JSON_RPC_Reader : public JSON_RPC_Parser {
public:
  enum {
    OBJECT_MODE = 1,           ///< the default; objects are built whatever the mode says
    FORWARD_REQUEST_MODE = 2,  ///< a hook that always declines
    FORWARD_RESPONSE_MODE = 4,
    FILTER_REQUEST_MODE = 8,
    /// "result" goes to handler_, which a derived class set, after it took an object, when that
    /// member was reported to it. From then on the reader owns the handler.
    FILTER_RESPONSE_MODE = 16
  };
  enum State { STATE_INIT = 0, STATE_PARSING = 1, STATE_FORWARDING = 2 };

  JSON_RPC_Reader();
  ~JSON_RPC_Reader() override;

  /// Ready for the next message. Drops the channels: set them after it.
  bool open();
  void close();
  /// Forgets the message, the channels and what a relay holds.
  void clear();

  /// The message; null while none was built, and for a forwarded response.
  JSON_RPC_Object_var object() const { return object_; }
  /// The reader's own handle of it, or null: for whoever dispatches before the next open(), clear()
  /// or close(), and spares a copy.
  const JSON_RPC_Object_var* message() const {
    return object_.get() != nullptr ? &object_ : nullptr;
  }

  /// Whether a params handler took the params of this request.
  bool handled_indirectly() const { return handled_indirectly_; }
  /// Not set back at the end of a message.
  State state() const { return state_; }
  void mode(unsigned int bits) { mode_ = bits; }
  unsigned int mode() const { return mode_; }

  /// The channel that is read: its forward entries are looked up.
  void channel(const JSON_RPC_Channel_ptr& channel) { channel_ = channel; }
  /// The channel that a params handler's creator gets; while a response is forwarded, the
  /// requester.
  void request_channel(const JSON_RPC_Channel_var& channel) { request_channel_ = channel; }
  JSON_RPC_Channel_var request_channel() const { return request_channel_; }

  /// The "id" of the message as read so far: null until read. After a relay began, the requester's.
  const json_spirit::Value& id() const { return id_; }

  bool handle_key_i(unsigned int key, const char* text, std::size_t length) override;

protected:
  /// A new request object, or null with errno ENOMEM: where an owner wants a class of its own.
  virtual JSON_RPC_Request* make_request();

  /// Makes `object`, which is owned, the message, with the version and id as read so far. False
  /// with errno ENOMEM, ERROR_NO_MEMORY, when it is null or there is no memory.
  bool take(JSON_RPC_Object* object);

private:
  bool handle_version_i(const char* text, std::size_t length);
  bool handle_id_i(const char* text, std::size_t length);
  bool handle_method_i(const char* text, std::size_t length);
  bool handle_params_i(const char* text, std::size_t length);
  bool handle_result_i(const char* text, std::size_t length);
  bool handle_code_i(const char* text, std::size_t length);
  bool handle_message_i(const char* text, std::size_t length);
  bool handle_data_i(const char* text, std::size_t length);

  bool prepare_request();
  bool prepare_response();
  bool prepare_response_error();

  // 1: the value was taken here; 0: not applicable, go on normally; -1: fail.
  int forward_request(const char* text, std::size_t length);
  int forward_response(const char* text, std::size_t length);
  int filter_request(const char* text, std::size_t length);
  int filter_response(const char* text, std::size_t length);
  int replay_into_owned_handler(const char* text, std::size_t length);

  bool forward_response_cached_attributes(unsigned int masks, const char* text, std::size_t length);
  bool handle_indirectly(const char* text, std::size_t length);
  bool finish_forwarding();
  bool capture(json_spirit::Value& target, const char* text, std::size_t length);
  bool value_ended() const;
  void drop_owned_handler();
  void release_lock();

  JSON_RPC_Object* built() { return object_.get(); }
  template <typename T>
  T& object_as() {
    return static_cast<T&>(*object_);
  }

  bool handled_indirectly_;
  unsigned int mode_;
  State state_;
  json_spirit::Value id_;
  std::string version_;
  JSON_Parser parser_;
  JSON_RPC_Object_var object_;
  JSON_RPC_Channel_ptr channel_;
  JSON_RPC_Channel_var request_channel_;
  YAJL_Forward_Handler forward_parser_;
  ACE_Lock* lock_;  // of request_channel_, while it is held
  std::unique_ptr<YAJL_Handler> owned_handler_;
};
