#include "bench/host_under_test.h"

#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "bench/give_up.h"

namespace {

[[noreturn]] void become_host(const std::vector<std::string>& options) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // a benchmark that gives up leaves no host behind
  std::vector<std::string> words = {HOST_PROGRAM, "--listen", "tcp://127.0.0.1:0", "--log-level",
                                    "error"};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(&word[0]);
  arguments.push_back(nullptr);
  ::execv(HOST_PROGRAM, arguments.data());
  give_up(HOST_PROGRAM);
}

}  // namespace

Host_Under_Test::Host_Under_Test(const std::vector<std::string>& options) {
  int out[2];
  if (::pipe(out) != 0) give_up("pipe");
  pid_ = ::fork();
  if (pid_ == -1) give_up("fork");
  if (pid_ == 0) {
    ::dup2(out[1], STDOUT_FILENO);
    ::close(out[0]);
    ::close(out[1]);
    become_host(options);
  }
  ::close(out[1]);
  for (std::string line; line != "ready";) {
    line = read_line(out[0]);
    if (line.rfind("listening ", 0) == 0) {
      port_ = static_cast<unsigned short>(std::atoi(line.c_str() + line.rfind(':') + 1));
    }
  }
  ::close(out[0]);
}

Host_Under_Test::~Host_Under_Test() {
  if (pid_ <= 0) return;  // -1 would be everybody
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
}

std::size_t Host_Under_Test::resident_bytes() const {
  std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtoul(line.c_str() + 6, nullptr, 10) * 1024;
  }
  give_up("VmRSS");
}

std::size_t Host_Under_Test::descriptors() const {
  DIR* const dir = ::opendir(("/proc/" + std::to_string(pid_) + "/fd").c_str());
  if (dir == nullptr) give_up("fd");
  std::size_t count = 0;
  while (::readdir(dir) != nullptr) ++count;
  ::closedir(dir);
  return count;
}
