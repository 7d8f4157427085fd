// Detached threads are joined by nobody, so they are counted: from before a thread is spawned until
// its call has let go of the handler, the channel and the message.
#include "json_rpc/json_rpc_thread_handler.h"

#include <ace/OS_NS_Thread.h>
#include <ace/Thread_Manager.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>

#include "vexa/exception_text.h"
#include "vexa/log.h"
#include "vexa/thread_helper.h"

struct JSON_RPC_Thread_Handler::Thread_Params {
  Thread_Params(JSON_RPC_Thread_Handler* handler, JSON_RPC_Channel_ptr& channel,
                JSON_RPC_Object_var& obj)
      : handler_(handler), channel_(channel), obj_(obj) {}

  JSON_RPC_Thread_Handler* handler_;  // not owned
  JSON_RPC_Channel_var channel_;
  JSON_RPC_Object_var obj_;
};

namespace {

class Running {
public:
  void enter() {
    const std::lock_guard<std::mutex> guard(lock_);
    ++count_;
  }
  void leave() {
    const std::lock_guard<std::mutex> guard(lock_);
    if (--count_ == 0) none_.notify_all();
  }
  std::size_t count() {
    const std::lock_guard<std::mutex> guard(lock_);
    return count_;
  }
  bool wait(std::chrono::microseconds limit) {
    std::unique_lock<std::mutex> guard(lock_);
    return none_.wait_for(guard, limit, [this] { return count_ == 0; });
  }

private:
  std::mutex lock_;
  std::condition_variable none_;
  std::size_t count_ = 0;  // guarded by lock_
};

/// Never destroyed: a call may end after the destructors of static objects have run.
Running& calls() {
  alignas(Running) static unsigned char place[sizeof(Running)];
  static Running* const it = new (place) Running;
  return *it;
}

}  // namespace

int JSON_RPC_Thread_Handler::handle_object(JSON_RPC_Channel_ptr channel, JSON_RPC_Object_var obj) {
  std::unique_ptr<Thread_Params> params(new (std::nothrow) Thread_Params(this, channel, obj));
  if (params == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  if (params->channel_.null()) {
    errno = EPIPE;
    VEXA_ERROR("Abort handling JRON-RPC request, requester has gone.\n");
    return -1;
  }
  calls().enter();
  if (ACE_Thread_Manager::instance()->spawn(&JSON_RPC_Thread_Handler::run, params.get(),
                                            THR_NEW_LWP | THR_DETACHED | THR_EXPLICIT_SCHED,
                                            nullptr, nullptr, ACE_DEFAULT_THREAD_PRIORITY) == -1) {
    const int error = ACE_OS::last_error();
    calls().leave();
    VEXA_ERROR("Abort handling JRON-RPC request, failed to spawn thread, errno=%d, %m.\n", error);
    params.reset();
    errno = error;
    return -1;
  }
  static_cast<void>(params.release());  // the thread's own now
  return 0;
}

void* JSON_RPC_Thread_Handler::run(void* params) {
  set_thread_name("JSONRPCSolo", ACE_OS::thr_self());
  std::unique_ptr<Thread_Params> call(static_cast<Thread_Params*>(params));
  try {
    call->handler_->handle_object_i(call->channel_, call->obj_);
  } catch (...) {
    VEXA_ERROR("A handler threw an exception on its own thread: %s\n", vexa::exception_text());
  }
  call.reset();
  calls().leave();
  return nullptr;
}

std::size_t JSON_RPC_Thread_Handler::running() { return calls().count(); }

bool JSON_RPC_Thread_Handler::wait_all(const ACE_Time_Value& limit) {
  return calls().wait(std::chrono::seconds(limit.sec()) + std::chrono::microseconds(limit.usec()));
}
