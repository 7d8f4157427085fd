#pragma once

#include <chrono>
#include <thread>

#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/exception_text.h"
#include "vexa/exponential_backoff_iterator.h"
#include "vexa/http_connection.h"
#include "vexa/log.h"

// What the HTTP clients of JSON share.

/// How an exchange, or a part of it, has ended. Only a failure of the transport is tried again.
enum JSON_HTTP_Code : int { JSON_HTTP_OK = 0, JSON_HTTP_CONTENT = 1, JSON_HTTP_TRANSPORT = 2 };

/// Where reading a JSON body has ended.
enum class JSON_HTTP_Body { READ, NOT_OPENED, NOT_RECEIVED, NOT_PARSED, NOT_FINISHED };

/// Reads the body of a response, while it comes, as one JSON value into `result`. Logs nothing.
/// `result` is null first; after a failure it is as far as it got.
JSON_RPC_EXPORT JSON_HTTP_Body json_http_read_body(HTTP_Connection& connection,
                                                   json_spirit::Value& result);

/// Calls `attempt`, which gives a JSON_HTTP_Code, until that is not JSON_HTTP_TRANSPORT: after 1,
/// 2, 4 and so on up to 60 seconds, with jitter, in which the thread sleeps. Gives up after
/// `retries` retries, or once the sleeps add up to `retry_timeout` seconds; -1 lifts either limit.
/// The last code; an exception of an attempt counts as JSON_HTTP_CONTENT, after a log line.
template <typename Attempt>
int json_http_retry(int retries, int retry_timeout, Attempt attempt) {
  Exponential_Backoff_Iterator wait(1, Exponential_Backoff_Iterator::unlimited, 60, true);
  const Exponential_Backoff_Iterator end;
  for (int count = 1;; ++count, ++wait) {
    int code = JSON_HTTP_CONTENT;
    try {
      code = attempt();
    } catch (...) {
      VEXA_ERROR("An HTTP request with JSON failed: %C\n", vexa::exception_text());
    }
    const bool over = (retries != -1 && count > retries) ||
                      (retry_timeout != -1 && wait.cumulation() >= retry_timeout) || wait == end;
    if (code != JSON_HTTP_TRANSPORT || over) return code;
    const unsigned delay = *wait;
    VEXA_INFO("Retry(%d) %N:%l at %u second(s) later.\n", count, delay);
    std::this_thread::sleep_for(std::chrono::seconds(delay));  // a signal does not cut it short
  }
}
