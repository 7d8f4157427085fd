#pragma once

#include <ace/Task_Ex_T.h>
#include <ace/Time_Value.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <new>
#include <string>
#include <utility>

#include "vexa/handle_eintr.h"
#include "vexa/vexa_export.h"

/// A fixed number of worker threads that run tasks from one bounded queue. The queue charges each
/// task sizeof(std::function<void()>) = 32 bytes against its water marks. Any thread may put tasks
/// in; activate(), wait() and destruction belong to one thread, which must not be a worker.
/// An exception that leaves a task is logged; the worker goes on.
class VEXA_EXPORT Thread_Pool_Helper
    : public ACE_Task_Ex<ACE_MT_SYNCH, std::function<void()>, ACE_System_Time_Policy> {
public:
  typedef std::function<void()> task_type;

  /// @param name of every worker; null or empty: unnamed
  /// @param flags, priority as ACE's thread creation takes them
  /// @param io_priority a Linux I/O priority, already encoded; 0 leaves the workers' own
  /// @param timeout absolute limit of every enqueue, borrowed for the pool's life; null blocks, a
  ///        zero time never does
  /// Threads start in activate().
  Thread_Pool_Helper(size_t threads, const char* name, long flags, long priority, int io_priority,
                     ACE_Time_Value* timeout);
  /// Waits for running tasks; those that still wait are dropped.
  ~Thread_Pool_Helper() override;

  /// Starts the workers. 0; 1 when they run already; -1 with errno, and then no worker is left.
  int activate();

  /// Puts a task at the end of the queue, or, with `front`, ahead of those that wait. The number of
  /// tasks in the queue (at least 1), or -1: ENOMEM, EWOULDBLOCK when the queue is full,
  /// ESHUTDOWN when no worker is there or the queue is closed. A task is destroyed by the worker
  /// that ran it.
  int putq(const task_type& task, bool front);
  int putq(task_type&& task, bool front);

  /// Puts the call `object->method(args...)` at the end of the queue; result as putq(). The
  /// arguments are copied now and passed on a worker.
  template <typename Method, typename Object, typename... Args>
  int schedule(Method method, Object* object, Args&&... args);

  int svc() override;

  /// Lets every task that waits run (or drops them, with `discard_pending`), then ends and joins
  /// the workers. 0 on success or without workers, otherwise -1. Producers are not held back by the
  /// high water mark meanwhile; what they put in after the end is dropped.
  virtual int wait(bool discard_pending);

  /// Drops every task that waits.
  void clear();

  /// Tasks accepted and not finished, whether they wait or run. 0 means that no worker is in one.
  size_t busy() const { return busy_.load(std::memory_order_acquire); }

private:
  /// ACE's queue crashes when there is memory for a block but none for the description of what it
  /// holds: here such a task is refused with ENOMEM.
  class Task_Queue final
      : public ACE_Message_Queue_Ex<task_type, ACE_MT_SYNCH, ACE_System_Time_Policy> {
  public:
    int enqueue_head(task_type* task, ACE_Time_Value* timeout) override;
    int enqueue_tail(task_type* task, ACE_Time_Value* timeout) override;
  };

  static const task_type EMPTY;  // its address in the queue ends the workers; never called

  int enqueue(const task_type* task, bool front, ACE_Time_Value* timeout);
  void finish(task_type* task);

  Task_Queue queue_;  // has a lock of its own
  std::string _name;
  size_t _n_threads;
  long _flags;
  long _priority;
  int _io_priority;
  ACE_Time_Value* _timeout;
  std::atomic<size_t> busy_{0};
};

template <typename Method, typename Object, typename... Args>
int Thread_Pool_Helper::schedule(Method method, Object* object, Args&&... args) {
  try {
    return putq(task_type(std::bind(method, object, std::forward<Args>(args)...)), false);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}
