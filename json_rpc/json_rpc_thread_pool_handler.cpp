#include "json_rpc/json_rpc_thread_pool_handler.h"

#include <ace/OS_NS_Thread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <new>

#include "vexa/log.h"
#include "vexa/thread_pool_helper.h"
#include "vexa/to_string_if_ne.h"

namespace {

union Never_Destroyed {
  std::unique_ptr<Thread_Pool_Helper> pool;

  constexpr Never_Destroyed() : pool() {}
  ~Never_Destroyed() {}
} storage;

ACE_Time_Value no_waiting(0, 0);
std::atomic<std::size_t> refused{0};

std::unique_ptr<Thread_Pool_Helper> make_pool(std::size_t threads, const char* name) {
  constexpr int own_io_priority = 0;
  try {
    std::unique_ptr<Thread_Pool_Helper> pool(new (std::nothrow) Thread_Pool_Helper(
        threads, name, THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, ACE_DEFAULT_THREAD_PRIORITY,
        own_io_priority, &no_waiting));
    if (pool != nullptr) return pool;
  } catch (const std::bad_alloc&) {
  }
  errno = ENOMEM;
  return nullptr;
}

/// The queue counts bytes and charges every task alike.
std::size_t to_bytes(std::size_t tasks) {
  constexpr std::size_t task_bytes = sizeof(Thread_Pool_Helper::task_type);
  static_assert(task_bytes == 32, "water marks in tasks are converted by 32");
  return std::min(tasks, std::numeric_limits<std::size_t>::max() / task_bytes) * task_bytes;
}

std::string shown(std::size_t value, const char* text) {
  return vexa::to_string_if_ne(value, text, "(", ")");
}

}  // namespace

std::unique_ptr<Thread_Pool_Helper>& JSON_RPC_Thread_Pool_Handler::thread_pool_ = storage.pool;

int JSON_RPC_Thread_Pool_Handler::activate(const char* name, std::size_t threads,
                                           std::size_t high_water_mark,
                                           std::size_t low_water_mark) {
  VEXA_CHECK(threads > 0, "threads%s <= 0%s", -1, shown(threads, "threads").c_str(),
             shown(0, "0").c_str());
  VEXA_CHECK(low_water_mark > 0, "low_water_mark%s <= 0%s", -1,
             shown(low_water_mark, "low_water_mark").c_str(), shown(0, "0").c_str());
  VEXA_CHECK(high_water_mark >= low_water_mark, "high_water_mark%s < low_water_mark%s", -1,
             shown(high_water_mark, "high_water_mark").c_str(),
             shown(low_water_mark, "low_water_mark").c_str());

  std::unique_ptr<Thread_Pool_Helper> pool = make_pool(threads, name);
  if (pool == nullptr) return -1;
  deactivate();
  thread_pool_ = std::move(pool);
  thread_pool_->msg_queue()->high_water_mark(to_bytes(high_water_mark));
  thread_pool_->msg_queue()->low_water_mark(to_bytes(low_water_mark));
  const int result = thread_pool_->activate();
  if (result == -1) {
    const int error = errno;
    thread_pool_.reset();
    errno = error;
  }
  return result;
}

int JSON_RPC_Thread_Pool_Handler::deactivate() {
  // The pointer stays until the workers are gone, since the calls that they still run may use it:
  // such a call finds a closed queue.
  delete thread_pool_.get();
  static_cast<void>(thread_pool_.release());
  return 0;
}

bool JSON_RPC_Thread_Pool_Handler::is_active() { return thread_pool_ != nullptr; }

std::size_t JSON_RPC_Thread_Pool_Handler::busy() {
  return thread_pool_ != nullptr ? thread_pool_->busy() : 0;
}

std::size_t JSON_RPC_Thread_Pool_Handler::waiting() {
  return thread_pool_ != nullptr ? thread_pool_->msg_queue()->message_count() : 0;
}

std::size_t JSON_RPC_Thread_Pool_Handler::refusals() { return refused; }

int JSON_RPC_Thread_Pool_Handler::handle_object(JSON_RPC_Channel_ptr channel,
                                                JSON_RPC_Object_var obj) {
  if (thread_pool_ == nullptr) errno = ESHUTDOWN;
  VEXA_CHECK(thread_pool_.get() != nullptr, "thread_pool_.get() is NULL", -1);
  const int scheduled =
      thread_pool_->schedule(&JSON_RPC_Thread_Pool_Handler::handle_object_i, this, channel, obj);
  if (scheduled >= 1) return 0;
  if (errno == EWOULDBLOCK) ++refused;
  return -1;
}
