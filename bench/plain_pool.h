#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// The floor of the thread pool: workers on one queue with a mutex and a condition variable. A task
/// costs as many allocations as one of ours, four: its closure, its function object, and two blocks
/// of the queue.
class Plain_Pool {
public:
  explicit Plain_Pool(std::size_t workers) {
    for (std::size_t i = 0; i < workers; ++i) workers_.emplace_back([this] { work(); });
  }
  ~Plain_Pool() {
    {
      const std::lock_guard<std::mutex> guard(lock_);
      ended_ = true;
    }
    not_empty_.notify_all();
    for (std::thread& worker : workers_) worker.join();
  }
  Plain_Pool(const Plain_Pool&) = delete;
  Plain_Pool& operator=(const Plain_Pool&) = delete;

  void put(std::function<void()> call) {
    Task task = {std::make_unique<std::function<void()>>(std::move(call)),
                 std::make_unique<Block>(), std::make_unique<Block>()};
    {
      const std::lock_guard<std::mutex> guard(lock_);
      tasks_.push_back(std::move(task));
    }
    not_empty_.notify_one();
  }

private:
  struct Block {
    char bytes[96];
  };
  struct Task {
    std::unique_ptr<std::function<void()>> call;
    std::unique_ptr<Block> message;
    std::unique_ptr<Block> data;
  };

  void work() {
    for (;;) {
      Task task;
      {
        std::unique_lock<std::mutex> guard(lock_);
        not_empty_.wait(guard, [this] { return ended_ || !tasks_.empty(); });
        if (tasks_.empty()) return;
        task = std::move(tasks_.front());
        tasks_.pop_front();
      }
      (*task.call)();
    }
  }

  std::mutex lock_;
  std::condition_variable not_empty_;  // for tasks_ and ended_; put() and the destructor end a wait
  std::deque<Task> tasks_;             // guarded by lock_
  bool ended_ = false;                 // guarded by lock_
  std::vector<std::thread> workers_;
};
