#include "tests/process/host_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::size_t entries(const std::string& directory) {
  std::error_code gone;
  const fs::directory_iterator all(directory, gone);
  return std::distance(begin(all), end(all));
}

std::string record(const std::string& method, const std::string& path, const std::string& init) {
  return R"({"method":")" + method + R"(","dll":")" + path + R"(","init":")" + init + "\"},\n";
}

std::string all_methods() {
  std::string text = "[\n";
  for (const char* name : {"echo", "sum", "sleep", "solo", "count", "subscribe", "channels"}) {
    const std::string path = std::string(SAMPLE_PLUGIN_DIR) + "/lib" + name + ".so";
    text += record(name, path, std::string("make_") + name);
  }
  for (const char* name : {"throw", "pool_throw", "solo_throw", "forget", "solo_forget", "twice",
                           "hold", "stream", "filtered"}) {
    text += record(name, TEST_PLUGIN_DIR "/misbehave.so", std::string("make_") + name);
  }
  return text.substr(0, text.size() - 2) + "]\n";
}

std::string all_filters() {
  return "[" + record("count", SAMPLE_PLUGIN_DIR "/libcount.so", "make_count_filter") +
         R"({"method":"filtered","dll":")" TEST_PLUGIN_DIR
         R"(/misbehave.so","init":"make_throwing_filter"}])";
}

}  // namespace

Temporary_Directory::Temporary_Directory() : path_(::testing::TempDir() + "hostXXXXXX") {
  if (::mkdtemp(&path_[0]) == nullptr) ADD_FAILURE() << "cannot make " << path_;
}

Temporary_Directory::~Temporary_Directory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string Temporary_Directory::write(const std::string& name, const std::string& text) const {
  const std::string path = *this / name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

Host_Process::Host_Process(const Host_Setup& setup) {
  const std::string methods =
      directory_.write("methods.json", setup.methods.empty() ? all_methods() : setup.methods);
  const std::string filters = directory_.write("filters.json", all_filters());
  const std::string svc = directory_.write(
      "svc.conf", !setup.svc.empty() ? setup.svc
                                     : "dynamic JSON_RPC_Service Service_Object * " JSON_RPC_LIBRARY
                                       ":_make_JSON_RPC_Service() \"-j " +
                                           methods + " -f " + filters + " " + setup.pool + "\"\n");
  std::vector<std::string> words{HOST_PROGRAM, "--svc", svc};
  words.insert(words.end(), setup.options.begin(), setup.options.end());
  if (std::find(words.begin(), words.end(), "--listen") == words.end()) {
    words.insert(words.end(), {"--listen", "tcp://127.0.0.1:0"});
  }
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(&word[0]);
  arguments.push_back(nullptr);

  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  const int flags = O_WRONLY | O_CREAT | O_APPEND;
  posix_spawn_file_actions_addopen(&files, 1, (directory_ / "output").c_str(), flags, 0600);
  posix_spawn_file_actions_addopen(&files, 2, (directory_ / "log").c_str(), flags, 0600);
  if (posix_spawn(&pid_, HOST_PROGRAM, &files, nullptr, arguments.data(), environ) != 0) {
    ADD_FAILURE() << "cannot start " HOST_PROGRAM;
    pid_ = -1;
  }
  posix_spawn_file_actions_destroy(&files);
}

Host_Process::~Host_Process() {
  if (::testing::Test::HasFailure()) std::fprintf(stderr, "%.20000s", log().c_str());
  if (pid_ <= 0) return;
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
}

/// Whether it has ended. From then on there is no pid any more, and nobody else gets its signals.
bool Host_Process::ended() {
  int status = 0;
  if (pid_ > 0 && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    pid_ = -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return pid_ <= 0;
}

bool Host_Process::ready() {
  const bool in_time =
      wait_until([this] { return output().find("ready\n") != std::string::npos || ended(); });
  std::istringstream lines(output());
  bool ready = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("listening ", 0) == 0) urls_.push_back(line.substr(10));
    ready = line == "ready";
  }
  EXPECT_TRUE(in_time && ready && !urls_.empty()) << output() << log();
  return in_time && ready && !urls_.empty();
}

// Never with a pid of -1, which stands for every process there is.
void Host_Process::signal(int number) const {
  if (pid_ > 0) ::kill(pid_, number);
}

int Host_Process::wait(std::chrono::milliseconds limit) {
  if (wait_until([this] { return ended(); }, limit)) return status_;
  ADD_FAILURE() << "the host still runs";
  return -1;
}

void Host_Process::stop() {
  signal(SIGTERM);
  EXPECT_EQ(0, wait()) << log();
}

std::string Host_Process::output() const { return read_file(directory_ / "output"); }
std::string Host_Process::log() const { return read_file(directory_ / "log"); }

std::size_t Host_Process::logged(const std::string& part) const {
  const std::string text = log();
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

bool Host_Process::wait_for_log(const std::string& part) const {
  if (wait_until([&] { return logged(part) > 0; })) return true;
  ADD_FAILURE() << "not logged: " << part;
  return false;
}

std::size_t Host_Process::descriptors() const {
  return entries("/proc/" + std::to_string(pid_) + "/fd");
}
std::size_t Host_Process::threads() const {
  return entries("/proc/" + std::to_string(pid_) + "/task");
}

std::size_t Host_Process::resident_bytes() const {
  std::size_t size = 0, resident = 0;
  std::istringstream(read_file("/proc/" + std::to_string(pid_) + "/statm")) >> size >> resident;
  return resident * ::sysconf(_SC_PAGESIZE);
}

std::chrono::milliseconds Host_Process::cpu_time() const {
  const std::string stat = read_file("/proc/" + std::to_string(pid_) + "/stat");
  std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 2)));
  const std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
  if (words.size() < 13) return std::chrono::milliseconds(0);
  const long ticks = std::stol(words[11]) + std::stol(words[12]);
  return std::chrono::milliseconds(ticks * 1000 / ::sysconf(_SC_CLK_TCK));
}

bool Host_Process::wait_for_descriptors(std::size_t count) const {
  if (wait_until([&] { return descriptors() <= count; })) return true;
  ADD_FAILURE() << descriptors() << " descriptors are open, not " << count;
  return false;
}
