#pragma once

#include <ace/Time_Value.h>

#include <condition_variable>
#include <ctime>
#include <mutex>
#include <string>

#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_fwd.h"
#include "json_rpc/json_rpc_handler.h"
#include "json_rpc/json_rpc_object.h"
#include "json_spirit/json_spirit_value.h"

/// Calls over one channel. request() sends a request and blocks until its answer has come or a
/// deadline has passed: never on a loop thread, which would wait for what only it can read.
///
/// Operations give false after a log line. errno is then what the channel left when it failed to
/// send, ETIME when the time was over, ENOMEM when memory ran out. A session without a channel
/// fails every call with a line at emergency priority.
///
/// Any number of threads may use one session, as long as none calls reset(). A wall clock that is
/// set makes no wait longer or shorter. The response map must not be closed meanwhile.
class JSON_RPC_EXPORT JSON_RPC_Session {
public:
  static constexpr time_t DEFAULT_REQ_TIMEOUT = 60;  ///< seconds
  static constexpr time_t MAX_WAIT_TIME = 600;       ///< seconds

  /// Without a channel.
  JSON_RPC_Session();
  /// Keeps the channel alive; without one when it is gone already.
  explicit JSON_RPC_Session(const JSON_RPC_Channel_ptr& channel);

  void reset(const JSON_RPC_Channel_var& channel);

  /// Sends `req` under a fresh id, which replaces the one that it has, and waits for the answer: a
  /// JSON_RPC_Response or a JSON_RPC_Response_Error, or a null handle, with true, when a message of
  /// another kind came under the id. `result` is written only on success. Nobody else may use `req`
  /// meanwhile. Nothing is left in the response map; a later answer is dropped.
  /// @param timeout seconds; 0 stands for what get_timeout_env() gives, and where that is 0 too
  /// only an answer that is there at once counts. Above MAX_WAIT_TIME, or negative, it is
  /// MAX_WAIT_TIME.
  bool request(const JSON_RPC_Object_var& req, JSON_RPC_Object_var& result, time_t timeout);

  /// The same with a request whose params are written by `params`, which may be null, while it is
  /// sent. An empty method is a broken contract.
  /// Kept: nothing bounds `timeout`, and a negative one waits without end; the deadline counts from
  /// the second that has begun, so it may come up to one second early; and a call that fails leaves
  /// its id in the response map, where a late answer still finds it and ends nowhere.
  bool request(const char* method, JSON_Generator* params, JSON_RPC_Object_var& result,
               time_t timeout);

  /// Sends a notification, or any other message as it is, and waits for nothing.
  bool notify(const JSON_RPC_Object_var& obj);

  /// A request with a copy of `params`, in `out`; it has no id yet. A null method leaves the
  /// method empty. False with errno ENOMEM, `out` untouched.
  static bool make_rpc_request(const char* method, const json_spirit::Value& params,
                               JSON_RPC_Object_var& out);

  /// The same with what it is made of moved in; a null handle, with errno ENOMEM, on failure.
  static JSON_RPC_Object_var make_rpc_request(std::string method, json_spirit::Value&& params);

  /// The same without params. `*params_out`, unless `params_out` is null, points to them then, to
  /// be filled before the request is sent.
  static JSON_RPC_Object_var make_rpc_request(std::string method, json_spirit::Value** params_out);

  /// The seconds that the environment variable JSON_RPC_REQUEST_TIMEOUT names; DEFAULT_REQ_TIMEOUT
  /// when it is unset or empty. Kept: the number is taken as it reads. A text without one is 0, 45s
  /// is 45, too large a number is the largest.
  static void get_timeout_env(time_t& timeout);

private:
  JSON_RPC_Channel_var channel_;
};

/// Waits in the response map for the one answer that a thread sleeps for. handle_object() comes on
/// the thread that read the answer, get() on the one that called. Once it is made it needs no
/// memory, so an answer that has come reaches its caller; ACE's future would lose it, or crash.
class JSON_RPC_EXPORT JSON_RPC_Future_Handler : public JSON_RPC_Handler {
public:
  JSON_RPC_Future_Handler();
  ~JSON_RPC_Future_Handler() override;

  /// Wakes the caller: with `obj` when it is an answer, otherwise with a null handle, and then the
  /// result is -1. Only the first message counts; later ones are ignored with the same result.
  int handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) override;

  /// Blocks until there is a message, or so much time has passed as lies between now and
  /// `abs_deadline` on the wall clock; without end when that is null. 0, or -1 with errno ETIME,
  /// `result` untouched. A message that has come counts however late it is.
  int get(JSON_RPC_Object_var& result, ACE_Time_Value* abs_deadline);

  /// The same with the time to wait; of a negative one, no time.
  int get_within(JSON_RPC_Object_var& result, const ACE_Time_Value& limit);

private:
  void set(const JSON_RPC_Object_var& obj);

  std::mutex mutex_;              // a leaf
  std::condition_variable came_;  // with mutex_; ended by handle_object(), or by the time
  JSON_RPC_Object_var object_;    // guarded by mutex_ until it is set, then only read
  bool set_ = false;              // guarded by mutex_
};
