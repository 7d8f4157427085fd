#pragma once

#include "json_rpc/json_restful_handler.h"
#include "json_rpc/json_rpc_export.h"
#include "vexa/dll_object_manager_t.h"

/// URI -> handler. For hosts that make their handlers at start; this library leaves it empty.
class JSON_RPC_EXPORT JSON_RESTful_Request_Map
    : public DLL_Object_Manager_T<JSON_RESTful_Handler, void (*)(void*), ACE_Null_Mutex,
                                  DLL_Object_Manager_Default_Tag> {
public:
  JSON_RESTful_Request_Map();
  ~JSON_RESTful_Request_Map() override;

  /// The one of this process; created by the first call, which must come before other threads do.
  static JSON_RESTful_Request_Map* instance();
  /// Destroys it with all its objects; a later instance() is a new, empty one.
  static void close_instance();
};
