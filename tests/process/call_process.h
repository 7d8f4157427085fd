#pragma once

#include <string>
#include <utility>

#include "tests/process/child_process.h"

/// The client, running.
class Call_Process : public Child_Process {
public:
  explicit Call_Process(Words words, const std::string& input = std::string()) {
    words.insert(words.begin(), CALL_PROGRAM);
    spawn(std::move(words), input);
  }

  /// Its exit status, and the most memory in kB that it was seen to have meanwhile; what wait4()
  /// tells counts the memory of who started it too.
  std::pair<int, long> wait_and_watch() {
    long most = 0;
    wait_until([&] {
      std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
      for (std::string word; status >> word;) {
        if (word == "VmHWM:") status >> most;
      }
      return ended();
    });
    return {wait(), most};
  }
};

/// Runs the client to its end: status, output and errors in one text.
inline std::string run(Words words, const std::string& input = std::string()) {
  Call_Process call(std::move(words), input);
  const int status = call.wait();
  return std::to_string(status) + "|" + call.output() + "|" + call.log();
}
