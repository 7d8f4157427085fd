#pragma once

#include <ace/Addr.h>
#include <ace/Lock.h>
#include <ace/Thread_Mutex.h>
#include <yajl/yajl_gen.h>

#include <string>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/http_sock_state.h"

/// One connection to a peer, over which messages go out and from which a reader builds those that
/// come in. The host derives a class for each transport; the library makes none. Only the host
/// holds a strong JSON_RPC_Channel_var for longer than a call; every table holds weak
/// JSON_RPC_Channel_ptr.
///
/// Any thread may call the accessors: mutex_ is held for the copy or swap of one field and is a
/// leaf. A getter that cannot lock, or has no memory for the copy, gives the empty value; a setter
/// then changes nothing.
///
/// send() is called by other threads than the channel's own, with read locks of the registries
/// held, and with the channel map's write lock when a channel is unregistered: on its own thread it
/// never registers, unregisters, subscribes or unsubscribes. The last reference to a channel may be
/// one that a registry made for a call; it goes on that thread, when no registry's lock is held.
class JSON_RPC_EXPORT JSON_RPC_Channel {
public:
  typedef ACE_Thread_Mutex Lock;

  /// Type 0; id, session id and version are empty.
  JSON_RPC_Channel();
  /// The other channel's identity, read under its lock, under a lock of its own. When the lock
  /// fails the copy has the identity of a new channel. May throw std::bad_alloc.
  JSON_RPC_Channel(const JSON_RPC_Channel& other);
  JSON_RPC_Channel& operator=(const JSON_RPC_Channel&) = delete;
  virtual ~JSON_RPC_Channel();

  /// Serialises and sends one message. 0, or -1 with errno.
  virtual int send(JSON_RPC_Object_var obj) = 0;

  /// Sends the message that `gen` writes. 0, or -1 with errno.
  virtual int send(JSON_Generator& gen) = 0;

  /// Begins a streamed message. The generator to write it with, valid until send_end(); null when
  /// the message cannot be begun. Whoever streams holds io_mutex() until after send_end(), where
  /// there is one.
  virtual yajl_gen_t* send_begin() = 0;

  /// Ends and flushes the message that send_begin() began. 0, or -1 with errno.
  virtual int send_end() = 0;

  /// Remembers that the request `id` of `requester` goes out over this channel. The id to send it
  /// under, or -1 when it cannot be forwarded, as here.
  virtual int put_forward_entry(JSON_RPC_Channel_ptr requester, const json_spirit::Value& id);

  /// Takes out what put_forward_entry() remembered under `forward_id`: 0, or -1 with the outputs
  /// untouched when there is nothing, as here.
  virtual int get_forward_entry(int forward_id, JSON_RPC_Channel_ptr& requester,
                                json_spirit::Value& id);

  /// Sends `obj`, which came from `requester`, over this channel in such a way that the answer
  /// finds back. 0, or -1, as here.
  virtual int forward(JSON_RPC_Channel_ptr requester, JSON_RPC_Object_var obj);

  /// The address of this end; 0, or -1 with errno. `addr` is an ACE_INET_Addr when the library
  /// asks.
  virtual int get_local_addr(ACE_Addr& addr) = 0;

  /// The same of the peer's end.
  virtual int get_remote_addr(ACE_Addr& addr) = 0;

  /// Whether the transport is TLS.
  virtual bool is_ssl() = 0;

  /// How far the exchange has come when HTTP carries it: what came in, and what goes out. A relayed
  /// answer whose send_end() fails counts as sent in HTTP_SOCK_STATE_CONTENT_SENT.
  virtual HTTP_SOCK_State request_state() = 0;
  virtual HTTP_SOCK_State response_state() = 0;

  /// Where the peer really is, when it comes through a proxy, as the host defines it. -1 with
  /// `addr` untouched when that is unknown, as here.
  virtual int get_original_addr(ACE_Addr& addr) const;

  /// The lock that serialises writers of streamed messages; null, as here, when none is needed. The
  /// reader of another channel holds it from the first byte of an answer that it relays to the
  /// last.
  virtual ACE_Lock* io_mutex();

  /// The host's number for this kind of channel. The channel map files by it; 0 there lists all.
  int type() const;
  void type(int type);

  /// Unique within the type.
  std::string id() const;
  void id(const std::string& id);

  /// The peer's session, as the host defines it.
  std::string session_id() const;
  void session_id(const std::string& session_id);

  /// What the host notes about the peer's version. Replaced whole, not merged.
  json_spirit::Object version() const;
  void version(const json_spirit::Object& version);

  /// Sends the error answer to the request `id`. A null `message` stands for the standard text of
  /// `code`, or nothing where there is none; a null `data` is left out. What send() gives, or -1
  /// with errno ENOMEM.
  int send_error(int code, const json_spirit::Value& id, const char* message,
                 const json_spirit::Value& data);

  /// Whether `entry`, as tables keep it, refers to `channel`, which is not empty. Looks at the
  /// counts of no other entry than the one that is looked for.
  static bool same(const JSON_RPC_Channel_ptr& entry, const JSON_RPC_Channel_var& channel) {
    return entry.unsafe_get() == channel.get() && entry == channel;
  }

private:
  int type_;  // the four fields are guarded by mutex_
  std::string id_;
  std::string sess_id_;
  json_spirit::Object version_;
  mutable Lock mutex_;
};
