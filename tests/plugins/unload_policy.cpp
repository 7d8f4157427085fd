#include <ace/DLL_Manager.h>

#include "json_rpc/json_rpc_export.h"

// Makes ACE really unload the library once its last reference is dropped.
extern "C" JSON_RPC_PLUGIN_EXPORT u_long _get_dll_unload_policy() {
  return ACE_DLL_UNLOAD_POLICY_DEFAULT;
}
