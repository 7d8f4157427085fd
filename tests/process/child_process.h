#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temporary_file.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

typedef std::vector<std::string> Words;

/// How long a test waits for the host before it fails.
constexpr std::chrono::seconds host_patience(sanitized ? 60 : 20);

/// Whether `done` came true within `limit`; asks every few milliseconds.
template <typename Condition>
bool wait_until(Condition done, std::chrono::milliseconds limit = host_patience) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// All of a file; "" when there is none.
inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

/// A program of ours, running; killed when it is still there at the end.
class Child_Process {
public:
  Child_Process() = default;
  ~Child_Process() {
    if (ended()) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  Child_Process(const Child_Process&) = delete;
  Child_Process& operator=(const Child_Process&) = delete;

  pid_t pid() const { return pid_; }
  // Never with a pid of -1, which stands for every process there is.
  void signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
  }
  /// Whether it has ended. From then on there is no pid any more, and nobody else gets its signals.
  bool ended() {
    int status = 0;
    if (pid_ > 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return pid_ <= 0;
  }
  /// Waits until it ends: its exit status, or 128 and the signal that ended it; -1 and a failed
  /// test when it goes on.
  int wait(std::chrono::milliseconds limit = host_patience) {
    if (wait_until([this] { return ended(); }, limit)) return status_;
    ADD_FAILURE() << "it still runs";
    return -1;
  }

  /// All that it has written so far to standard output, and to standard error.
  std::string output() const { return read_file(directory_ / "output"); }
  std::string log() const { return read_file(directory_ / "log"); }

protected:
  /// Starts words[0], which reads `input`.
  void spawn(Words words, const std::string& input = std::string()) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const std::string in = directory_.write("in", input);
    const int flags = O_WRONLY | O_CREAT | O_APPEND;
    posix_spawn_file_actions_addopen(&files, 0, in.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, (directory_ / "output").c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&files, 2, (directory_ / "log").c_str(), flags, 0600);
    if (posix_spawn(&pid_, arguments[0], &files, nullptr, arguments.data(), environ) != 0) {
      ADD_FAILURE() << "cannot start " << words[0];
      pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&files);
  }

  const Temporary_Directory directory_;

private:
  pid_t pid_ = -1;   // while it runs
  int status_ = -1;  // once it has ended
};
