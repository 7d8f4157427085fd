#include "tests/process/host_process.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::size_t entries(const std::string& directory) {
  std::error_code gone;
  const fs::directory_iterator all(directory, gone);
  return std::distance(begin(all), end(all));
}

std::string record(const std::string& method, const std::string& path, const std::string& init) {
  return R"({"method":")" + method + R"(","dll":")" + path + R"(","init":")" + init + "\"}";
}

std::string all_methods() {
  std::string text = "[\n";
  for (const std::string name :
       {"echo", "sum", "sleep", "solo", "count", "subscribe", "channels", "blob", "agent_call"}) {
    const std::string path = std::string(SAMPLE_PLUGIN_DIR) + "/lib" + name + ".so";
    text += record(name == "agent_call" ? "agent.call" : name, path, "make_" + name) + ",\n";
  }
  for (const char* name :
       {"throw", "pool_throw", "solo_throw", "forget", "solo_forget", "twice", "hold"}) {
    text += record(name, TEST_PLUGIN_DIR "/misbehave.so", std::string("make_") + name) + ",\n";
  }
  return text.substr(0, text.size() - 2) + "]\n";
}

}  // namespace

Host_Process::Host_Process(const Host_Setup& setup) {
  const std::string methods =
      directory_.write("methods.json", setup.methods.empty() ? all_methods() : setup.methods);
  const std::string filters = directory_.write(
      "filters.json",
      "[" + record("count", SAMPLE_PLUGIN_DIR "/libcount.so", "make_count_filter") + "]");
  const std::string svc = directory_.write(
      "svc.conf", !setup.svc.empty() ? setup.svc
                                     : "dynamic JSON_RPC_Service Service_Object * " JSON_RPC_LIBRARY
                                       ":_make_JSON_RPC_Service() \"-j " +
                                           methods + " -f " + filters + " " + setup.pool + "\"\n");
  Words words{HOST_PROGRAM, "--svc", svc};
  words.insert(words.end(), setup.options.begin(), setup.options.end());
  if (std::find(words.begin(), words.end(), "--listen") == words.end()) {
    words.insert(words.end(), {"--listen", "tcp://127.0.0.1:0"});
  }
  spawn(std::move(words));
}

Host_Process::~Host_Process() {
  if (::testing::Test::HasFailure()) std::fprintf(stderr, "%.20000s", log().c_str());
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

void Host_Process::stop() {
  signal(SIGTERM);
  EXPECT_EQ(0, wait()) << log();
}

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

std::string Host_Process::proc(const char* name) const {
  return "/proc/" + std::to_string(pid()) + "/" + name;
}

std::size_t Host_Process::descriptors() const { return entries(proc("fd")); }
std::size_t Host_Process::threads() const { return entries(proc("task")); }

std::size_t Host_Process::resident_bytes() const {
  std::size_t size = 0, resident = 0;
  std::istringstream(read_file(proc("statm"))) >> size >> resident;
  return resident * ::sysconf(_SC_PAGESIZE);
}

std::chrono::milliseconds Host_Process::cpu_time() const {
  const std::string stat = read_file(proc("stat"));
  std::istringstream fields(stat.substr(std::min(stat.size(), stat.rfind(')') + 2)));
  const Words words{std::istream_iterator<std::string>(fields), {}};
  if (words.size() < 13) return std::chrono::milliseconds(0);
  const long ticks = std::stol(words[11]) + std::stol(words[12]);
  return std::chrono::milliseconds(ticks * 1000 / ::sysconf(_SC_CLK_TCK));
}

bool Host_Process::wait_for_descriptors(std::size_t count) const {
  if (wait_until([&] { return descriptors() <= count; })) return true;
  ADD_FAILURE() << descriptors() << " descriptors are open, not " << count;
  return false;
}
