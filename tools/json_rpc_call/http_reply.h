#pragma once

#include "json_spirit/json_spirit_value.h"
#include "tools/json_rpc_call/attempts.h"
#include "tools/json_rpc_call/output.h"
#include "vexa/http_response.h"

/// Why the exchange failed that has this response, for one line: what the library said first, or
/// the status.
std::string reason_of_http_failure(const HTTP_Response& response);

/// Whether the status says that all went well.
bool is_success(const HTTP_Response& response);

/// Prints the body that was read, or, with a status that is no success, complains of that and
/// writes the body to standard error. `whole` says whether there was a response with a body that
/// could be read, or with none.
Outcome print_reply(const HTTP_Response& response, bool whole, const json_spirit::Value& body,
                    const Output_Style& style);

/// Prints what a JSON-RPC response holds: its result, or its error object.
Outcome print_document(const HTTP_Response& response, const json_spirit::Value& document,
                       const Output_Style& style);
