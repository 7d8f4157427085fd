// Producers and workers meet in the message queue only, which has its own lock. One stop marker
// ends all workers: each puts it back at the head for the next before it leaves.
#include "vexa/thread_pool_helper.h"

#include <ace/OS_NS_Thread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <limits>

#include "vexa/exception_text.h"
#include "vexa/log.h"
#include "vexa/on_exit.h"
#include "vexa/thread_helper.h"

namespace {

void set_io_priority(int priority) {
  constexpr int who_process = 1;     // IOPRIO_WHO_PROCESS
  constexpr int calling_thread = 0;  // glibc has neither the call nor its names
  if (::syscall(SYS_ioprio_set, who_process, calling_thread, priority) == -1) {
    VEXA_WARNING("Failed to set IO priority: errno=%d, %m\n", ACE_OS::last_error());
  }
}

}  // namespace

const Thread_Pool_Helper::task_type Thread_Pool_Helper::EMPTY;

Thread_Pool_Helper::Thread_Pool_Helper(size_t threads, const char* name, long flags, long priority,
                                       int io_priority, ACE_Time_Value* timeout)
    : ACE_Task_Ex(nullptr, &queue_),
      _name(name != nullptr ? name : ""),
      _n_threads(threads),
      _flags(flags),
      _priority(priority),
      _io_priority(io_priority),
      _timeout(timeout) {}

Thread_Pool_Helper::~Thread_Pool_Helper() {
  msg_queue()->deactivate();
  ACE_Task_Base::wait();
  msg_queue()->activate();
  // ACE would free its blocks but not the tasks that they point to.
  clear();
}

int Thread_Pool_Helper::activate() {
  if (_n_threads > static_cast<size_t>(std::numeric_limits<int>::max())) {
    errno = EINVAL;
    return -1;
  }
  const int result = ACE_Task_Base::activate(_flags, static_cast<int>(_n_threads), 0, _priority);
  if (result != -1) return result;

  // ACE forgets the workers that did start when one of them did not, yet they run.
  const int error = errno;
  msg_queue()->deactivate();
  ACE_Task_Base::wait();
  msg_queue()->activate();
  thr_count_ = 0;
  errno = error;
  return -1;
}

int Thread_Pool_Helper::putq(const task_type& task, bool front) {
  try {
    return putq(task_type(task), front);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return -1;
  }
}

int Thread_Pool_Helper::putq(task_type&& task, bool front) {
  if (thr_count() == 0) {
    errno = ESHUTDOWN;
    VEXA_ERROR("No active worker thread!\n");
    return -1;
  }
  task_type* const copy = new (std::nothrow) task_type(std::move(task));
  if (copy == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  busy_.fetch_add(1, std::memory_order_relaxed);
  const int result = enqueue(copy, front, _timeout);
  if (result >= 1) return result;

  const int error = ACE_OS::last_error();
  VEXA_ERROR("Failed to schedule task, errno=%d, %m\n", error);
  finish(copy);
  errno = error;  // EWOULDBLOCK tells the caller that trying again makes sense
  return result;
}

int Thread_Pool_Helper::enqueue(const task_type* task, bool front, ACE_Time_Value* timeout) {
  task_type* const item = const_cast<task_type*>(task);
  return handle_EINTR([&] {
    return front ? queue_.enqueue_head(item, timeout) : queue_.enqueue_tail(item, timeout);
  });
}

namespace {

/// A block that stands for `task` in a queue; null with errno ENOMEM.
ACE_Message_Block* block_of(std::function<void()>* task) {
  ACE_Message_Block* const block =
      new (std::nothrow) ACE_Message_Block(reinterpret_cast<char*>(task), sizeof *task);
  if (block != nullptr && block->data_block() != nullptr) return block;
  ACE_Message_Block::release(block);
  errno = ENOMEM;
  return nullptr;
}

int check(int result, ACE_Message_Block& block) {
  if (result != -1) return result;
  const int error = errno;
  block.release();
  errno = error;
  return -1;
}

}  // namespace

int Thread_Pool_Helper::Task_Queue::enqueue_head(task_type* task, ACE_Time_Value* timeout) {
  ACE_Message_Block* const block = block_of(task);
  return block == nullptr ? -1 : check(queue_.enqueue_head(block, timeout), *block);
}

int Thread_Pool_Helper::Task_Queue::enqueue_tail(task_type* task, ACE_Time_Value* timeout) {
  ACE_Message_Block* const block = block_of(task);
  return block == nullptr ? -1 : check(queue_.enqueue_tail(block, timeout), *block);
}

void Thread_Pool_Helper::finish(task_type* task) {
  delete task;
  busy_.fetch_sub(1, std::memory_order_release);
}

int Thread_Pool_Helper::svc() {
  if (!_name.empty()) set_thread_name(_name.c_str(), ACE_OS::thr_self());
  if (_io_priority != 0) set_io_priority(_io_priority);
  for (;;) {
    task_type* task = nullptr;
    const int left = handle_EINTR([&] { return getq(task); });
    if (left == -1 || task == nullptr) return 0;
    if (task == &EMPTY) {
      // Whoever is left must not wait for a marker that there was no memory for.
      if (enqueue(&EMPTY, true, nullptr) == -1) msg_queue()->deactivate();
      return 0;
    }
    try {
      (*task)();
    } catch (...) {
      VEXA_ERROR("A task of the thread pool '%s' threw an exception: %s\n", _name.c_str(),
                 vexa::exception_text());
    }
    finish(task);
  }
}

int Thread_Pool_Helper::wait(bool discard_pending) {
  if (discard_pending) clear();
  if (thr_count() == 0) return 0;

  // Without room of its own the marker could not be put back once a producer has taken its place,
  // and the last worker would wait for somebody to make room for ever.
  const size_t mark = msg_queue()->high_water_mark();
  msg_queue()->high_water_mark(std::numeric_limits<size_t>::max());
  const auto restore = vexa::on_exit([&] { msg_queue()->high_water_mark(mark); });

  int result = enqueue(&EMPTY, false, nullptr);
  if (result != -1) result = ACE_Task_Base::wait();
  if (result != -1) msg_queue()->activate();
  clear();
  return result;
}

void Thread_Pool_Helper::clear() {
  // A worker may take the last task between the test and the dequeue, so that must not block.
  ACE_Time_Value at_once(ACE_Time_Value::zero);
  while (!msg_queue()->is_empty()) {
    task_type* task = nullptr;
    const int left = handle_EINTR([&] { return getq(task, &at_once); });
    if (left == -1 || task == nullptr) return;
    if (task != &EMPTY) finish(task);
  }
}
