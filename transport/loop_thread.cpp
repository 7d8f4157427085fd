#include "transport/loop_thread.h"

namespace transport {

namespace {

thread_local bool marked = false;

}  // namespace

bool on_loop_thread() { return marked; }

Loop_Thread_Mark::Loop_Thread_Mark() { marked = true; }
Loop_Thread_Mark::~Loop_Thread_Mark() { marked = false; }

}  // namespace transport
