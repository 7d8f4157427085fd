#pragma once

#include "json_rpc/json_rpc_export.h"
#include "json_rpc/json_rpc_handler.h"
#include "vexa/dll_object_manager_t.h"

/// Method name -> handler. Filled at start from the handler configuration, then read without a lock
/// by every reading thread.
class JSON_RPC_EXPORT JSON_RPC_Request_Map
    : public DLL_Object_Manager_T<JSON_RPC_Handler, void (*)(void*), ACE_Null_Mutex,
                                  DLL_Object_Manager_Default_Tag> {
public:
  JSON_RPC_Request_Map();
  ~JSON_RPC_Request_Map() override;

  /// The one of this process; created by the first call, which must come before other threads do.
  static JSON_RPC_Request_Map* instance();
  /// Destroys it with all its objects; a later instance() is a new, empty one.
  static void close_instance();
};
