#pragma once

#include "json_rpc/http_form_post.h"
#include "json_rpc/json_rpc_channel.h"
#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"

/// Blocking calls that are tried again when they cannot be sent, or are not answered in time. Every
/// attempt waits as JSON_RPC_Session::request() does by default; between attempts the thread sleeps
/// 1, 2, 4 and so on up to 60 seconds, with jitter. Never on a loop thread.
///
/// An attempt without an answer may have been carried out all the same, so a method that is called
/// with retries must bear being carried out twice: docs/calls.md shows how.
///
/// All three give true when the peer answered with a result, and then:
/// @param response gets the result; null discards it, whatever its kind. Untouched on failure.
/// @param expected_response_type the kind that the result must have; null_type means any.
/// @param retry_seconds retrying ends once the sleeps between attempts add up to as many seconds;
/// the time that attempts take does not count. -1: no limit.
/// @param retries retrying ends after as many; 0 is one attempt. -1: no limit. With both limits the
/// first one that is reached counts, with neither only an answer ends the call.
///
/// False after a log line: an error response, which is never tried again; a result of another kind;
/// a message that is no answer; no channel; no attempt succeeded, and then errno is what the last
/// one left. Any thread may call; only the channel's own lifetime is the host's care.

JSON_RPC_EXPORT bool send_rpc(const JSON_RPC_Channel_var& chn, const char* method,
                              const json_spirit::Value& params, json_spirit::Value* response,
                              json_spirit::Value_type expected_response_type, int retry_seconds,
                              int retries);

/// Over the process's default channel. Kept: `retry_seconds` stands before `response` here.
JSON_RPC_EXPORT bool global_json_rpc(const char* method, const json_spirit::Value& params,
                                     int retry_seconds, json_spirit::Value* response,
                                     json_spirit::Value_type expected_response_type, int retries);

/// Over the channel that the channel map has under type 1, the agents', and that id. It is looked
/// up once: an agent that comes back on another channel meanwhile is not found by the retries.
JSON_RPC_EXPORT bool send_rpc_to_agent(const char* agent_uuid, const char* method,
                                       const json_spirit::Value& params,
                                       json_spirit::Value* response,
                                       json_spirit::Value_type expected_response_type,
                                       int retry_seconds, int retries);
