#include "json_rpc/json_rpc_handler.h"

JSON_RPC_Handler::~JSON_RPC_Handler() = default;

int JSON_RPC_Handler::init(int, char**) { return 0; }

int JSON_RPC_Handler::fini() { return 0; }

ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Handler, ACE_Recursive_Thread_Mutex>*
ACE_Refcounted_Auto_Ptr_Rep<JSON_RPC_Handler, ACE_Recursive_Thread_Mutex>::none() noexcept {
  // Never destroyed: handles may be made until the process is gone.
  alignas(
      ACE_Refcounted_Auto_Ptr_Rep) static unsigned char place[sizeof(ACE_Refcounted_Auto_Ptr_Rep)];
  static ACE_Refcounted_Auto_Ptr_Rep* const rep = new (place) ACE_Refcounted_Auto_Ptr_Rep(nullptr);
  return rep;
}
