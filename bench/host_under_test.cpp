#include "bench/host_under_test.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::abort();
}

std::string read_line_of(int file) {
  std::string line;
  char c;
  while (::read(file, &c, 1) == 1 && c != '\n') line += c;
  return line;
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
    std::vector<std::string> words = {HOST_PROGRAM, "--listen", "tcp://127.0.0.1:0", "--log-level",
                                      "error"};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    ::execv(HOST_PROGRAM, arguments.data());
    give_up(HOST_PROGRAM);
  }
  ::close(out[1]);
  for (std::string line; line != "ready";) {
    line = read_line_of(out[0]);
    if (line.empty()) give_up("the host does not start");
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

int Host_Under_Test::connect() const {
  const int s = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port_);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (s == -1 || ::connect(s, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    give_up("connect");
  }
  return s;
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

void send_all(int socket, const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t n = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) give_up("send");
    sent += static_cast<std::size_t>(n);
  }
}

std::string read_line(int socket) {
  std::string line = read_line_of(socket);
  if (line.empty()) give_up("no answer");
  return line;
}
