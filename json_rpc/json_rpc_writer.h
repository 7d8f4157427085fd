#pragma once

#include <yajl/yajl_gen.h>

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_object.h"
#include "vexa/json_generator.h"
#include "vexa/yajl_gen_handle.h"
#include "vexa/yajl_printer.h"

/// The members proper to a kind of message, written into an object that is already open in `gen`.
/// Always yajl's status "ok", 0: nothing is written any more after a status that is not.
JSON_RPC_EXPORT int yajl_gen_json_rpc_request(yajl_gen_t* gen, const JSON_RPC_Request& request);
JSON_RPC_EXPORT int yajl_gen_json_rpc_response(yajl_gen_t* gen, const JSON_RPC_Response& response);
JSON_RPC_EXPORT int yajl_gen_json_rpc_response_error(yajl_gen_t* gen,
                                                     const JSON_RPC_Response_Error& error);

/// Writes one message at a time as JSON text, straight into a printer. Member order is fixed:
/// "jsonrpc", "id" (not in a notification), then "method" and "params", or "result", or "error"
/// with "code", "message", "data". Null params and null data are left out; a null result is
/// written. Nothing is logged. One thread at a time.
class JSON_RPC_EXPORT JSON_RPC_Writer {
public:
  JSON_RPC_Writer() = default;
  JSON_RPC_Writer(const JSON_RPC_Writer&) = delete;
  JSON_RPC_Writer& operator=(const JSON_RPC_Writer&) = delete;

  /// A new generator that prints to `printer`, valid until close(); null when out of memory.
  yajl_gen_t* open(YAJL_Printer& printer) { return gen_.open(printer); }
  void close() { gen_.close(); }

  /// One whole message. False when the object is of none of the four kinds, or when a value cannot
  /// be written (deeper than vexa::max_value_depth, a real that is not finite): the text so far is
  /// then the caller's to abandon.
  bool write(const JSON_RPC_Object& object, YAJL_Printer& printer);

  /// What `generator` generates, and its result. False without calling it when out of memory.
  bool write(JSON_Generator& generator, YAJL_Printer& printer);

private:
  YAJL_Gen_Handle gen_;
};
