#pragma once

#include <cstddef>
#include <string>

#include "http/restful_channel.h"
#include "json_rpc/json_restful_handler.h"
#include "json_rpc/json_rpc_object.h"

/// One request on its way to a RESTful handler, and its answer: exactly one, whatever becomes of
/// it. It is a message so that it can travel to the shared pool and to threads as one. Used by one
/// thread at a time.
class Restful_Call final : public JSON_RPC_Object {
public:
  /// `handler` outlives the call. Throws std::bad_alloc.
  Restful_Call(JSON_RESTful_Handler& handler, Http_Request_Head head, std::size_t prefix,
               std::string body, std::size_t max_answer, Restful_Answer answer);
  /// A call that was not run, as there was nobody to run it, is answered 503.
  ~Restful_Call() override;
  Restful_Call(const Restful_Call&) = delete;

  /// Reads the body and calls the handler: a JSON value, or null for no body. 415 for a body that
  /// is said to be anything else, 400 for bad JSON, 500 for a handler that throws or does not
  /// answer. Throws nothing.
  void run() noexcept;

private:
  bool read_body(json_spirit::Value& value);

  JSON_RESTful_Handler& handler_;
  std::string body_;
  Restful_Channel channel_;
};
