#pragma once

#include "transport/transport_export.h"

namespace transport {

/// Whether the calling thread runs a loop of this transport: such a thread must not wait for a
/// peer.
TRANSPORT_EXPORT bool on_loop_thread();

/// Marks the calling thread as a loop's for as long as the object lives.
class Loop_Thread_Mark {
public:
  Loop_Thread_Mark();
  ~Loop_Thread_Mark();
  Loop_Thread_Mark(const Loop_Thread_Mark&) = delete;
  Loop_Thread_Mark& operator=(const Loop_Thread_Mark&) = delete;
};

}  // namespace transport
