#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// Shows what is going on, on one line of the terminal that standard error is, while it lives and
/// from a second on; nothing when standard error is no terminal. Erased at the end.
class Progress {
public:
  /// Says in a few words where things stand, on the progress's own thread.
  typedef std::function<std::string(std::chrono::seconds elapsed)> Text;

  explicit Progress(Text text);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

private:
  void run();

  const Text text_;
  std::mutex mutex_;
  std::condition_variable end_;  // with mutex_
  bool ended_ = false;           // guarded by mutex_
  std::thread thread_;           // none when there is nothing to show
};
