#pragma once

#include <map>
#include <string>

#include "json_rpc/json_rpc_export.h"
#include "json_spirit/json_spirit_value.h"
#include "vexa/http_request.h"
#include "vexa/http_response.h"
#include "vexa/http_session.h"

/// Sends a form (application/x-www-form-urlencoded) as the body of `req`, whose method, usually
/// POST, and URI the caller has set, and reads the JSON of the reply into `*result`. A null
/// `result` does not read it. One attempt; neither the Content-Type of the reply nor its status is
/// judged: a 500 with a JSON body is a success. False after an error line. Blocks.
JSON_RPC_EXPORT bool http_post_urlencoded_form(const HTTP_Session_var& sess, HTTP_Request& req,
                                               const std::map<std::string, std::string>& form,
                                               HTTP_Response& resp, json_spirit::Value* result);
