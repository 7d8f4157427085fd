#pragma once

#include <cstddef>
#include <string>

#include "http/http_exchange.h"
#include "http/restful_channel.h"
#include "json_rpc/json_restful_handler_creator_map.h"
#include "json_rpc/json_restful_request_map.h"

namespace http {

/// Lets every creator make its handler and registers it under the creator's URI: once, after the
/// configuration has been read and before other threads exist. A creator's create() initialises
/// what it makes, for it has the arguments; when `handlers` closes, the handler's fini() is called
/// and then the creator's destroy(). How many failed, each with an error line.
HTTP_EXPORT std::size_t make_restful_handlers(JSON_RESTful_Handler_Creator_Map& creators,
                                              JSON_RESTful_Request_Map& handlers);

/// Calls the handler with the longest prefix of the path: where it wants to run. False, and nothing
/// is touched, when there is none. Otherwise `answer` is called once, now or later, on any thread:
///
///   INHERITED, REACTIVE  here
///   THREAD               on a thread of the call's own
///   PROACTIVE            on the shared pool
///
/// 503 when no thread or no memory can be had, the pool is full, or there is none; what else goes
/// wrong is in restful_call.h. The handlers must outlive the calls, as they do when the service
/// closes: it waits for both kinds of threads first.
HTTP_EXPORT bool serve_restful(const JSON_RESTful_Request_Map& handlers, Http_Request_Head& head,
                               std::string& body, std::size_t max_answer, Restful_Answer answer);

}  // namespace http
