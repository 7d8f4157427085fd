#pragma once

#include <ace/Bound_Ptr.h>
#include <ace/Thread_Mutex.h>

/// Class names and the weak channel handle, for headers that only pass them on. A strong handle
/// lives in its class's header: dropping one of a class that is only declared would skip the
/// destructor.
class JSON_RPC_Object;
class JSON_RPC_Request;
class JSON_RPC_Response;
class JSON_RPC_Response_Error;
class JSON_RPC_Channel;
class JSON_RPC_Handler;
class JSON_RESTful_Channel;
class JSON_RESTful_Handler;
class JSON_Generator;
class YAJL_Handler;

/// A channel that may be gone: made strong (JSON_RPC_Channel_var) just before use.
typedef ACE_Weak_Bound_Ptr<JSON_RPC_Channel, ACE_Thread_Mutex> JSON_RPC_Channel_ptr;
