#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tests/process/host_process.h"

typedef std::vector<std::string> Words;

/// The client, running; killed when it is still there at the end.
class Call_Process {
public:
  explicit Call_Process(Words words, const std::string& input = std::string()) {
    words.insert(words.begin(), CALL_PROGRAM);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    const std::string in = directory_.write("in", input);
    posix_spawn_file_actions_addopen(&files, 0, in.c_str(), O_RDONLY, 0);
    const int flags = O_WRONLY | O_CREAT | O_APPEND;
    posix_spawn_file_actions_addopen(&files, 1, (directory_ / "out").c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&files, 2, (directory_ / "errors").c_str(), flags, 0600);
    if (posix_spawn(&pid_, CALL_PROGRAM, &files, nullptr, arguments.data(), environ) != 0) {
      ADD_FAILURE() << "cannot start " CALL_PROGRAM;
      pid_ = -1;
    }
    posix_spawn_file_actions_destroy(&files);
  }
  ~Call_Process() {
    if (ended()) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }

  bool ended() {
    int status = 0;
    sample_memory();
    if (pid_ > 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return pid_ <= 0;
  }
  /// Its exit status; -1 when it does not end.
  int wait() {
    return wait_until([this] { return ended(); }) ? status_ : -1;
  }
  void terminate() const {
    if (pid_ > 0) ::kill(pid_, SIGTERM);
  }

  std::string output() const { return read("out"); }
  std::string errors() const { return read("errors"); }
  /// As seen while it was waited for; what wait4() tells counts the memory of who started it too.
  long most_resident_kilobytes() const { return most_resident_; }

private:
  void sample_memory() {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string word; status >> word;) {
      if (word == "VmHWM:") status >> most_resident_;
    }
  }
  std::string read(const std::string& name) const {
    std::ifstream file(directory_ / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  Temporary_Directory directory_;
  pid_t pid_ = -1;
  int status_ = -1;
  long most_resident_ = 0;  // kB
};

/// Runs the client to its end: status, output and errors in one text.
inline std::string run(Words words, const std::string& input = std::string()) {
  Call_Process call(std::move(words), input);
  const int status = call.wait();
  return std::to_string(status) + "|" + call.output() + "|" + call.errors();
}
