#include "http/process_readings.h"

#include <dirent.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <sstream>
#include <string>

namespace http {

namespace {

constexpr double unknown = std::numeric_limits<double>::quiet_NaN();

// The numbers of fields in /proc/self/stat, as proc(5) counts them.
constexpr int user_time = 14;
constexpr int system_time = 15;
constexpr int threads = 20;
constexpr int start_time = 22;
constexpr int virtual_memory = 23;
constexpr int resident_memory = 24;

double ticks_a_second() { return static_cast<double>(::sysconf(_SC_CLK_TCK)); }

/// A field behind the second one, the program's name, which may hold anything.
double stat_field(int number) {
  std::ifstream file("/proc/self/stat");
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::size_t name_end = text.rfind(')');
  if (name_end == std::string::npos) return unknown;
  std::istringstream fields(text.substr(name_end + 1));
  std::string field;
  for (int i = 3; i <= number; ++i) fields >> field;
  std::istringstream digits(field);
  double value = unknown;
  return digits >> value ? value : unknown;
}

/// Seconds since the epoch.
double system_start() {
  std::ifstream file("/proc/stat");
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string key;
    double value;
    if (words >> key >> value && key == "btime") return value;
  }
  return unknown;
}

double open_descriptors() {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/proc/self/fd"), ::closedir);
  if (folder == nullptr) return unknown;
  int count = 0;
  while (::readdir(folder.get()) != nullptr) ++count;
  return count - 3;  // ".", ".." and the one that reads them
}

double max_descriptors() {
  rlimit limit;
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? static_cast<double>(limit.rlim_cur) : unknown;
}

double page() { return static_cast<double>(::sysconf(_SC_PAGESIZE)); }

}  // namespace

std::vector<Reading> process_readings() {
  return {
      {"process_cpu_seconds_total", "User and system time in seconds.", Reading::COUNTER,
       [] { return (stat_field(user_time) + stat_field(system_time)) / ticks_a_second(); }},
      {"process_resident_memory_bytes", "Resident memory in bytes.", Reading::GAUGE,
       [] { return stat_field(resident_memory) * page(); }},
      {"process_virtual_memory_bytes", "Virtual memory in bytes.", Reading::GAUGE,
       [] { return stat_field(virtual_memory); }},
      {"process_open_fds", "Open descriptors.", Reading::GAUGE, open_descriptors},
      {"process_max_fds", "Descriptors that may be open.", Reading::GAUGE, max_descriptors},
      {"process_threads", "Threads.", Reading::GAUGE, [] { return stat_field(threads); }},
      {"process_start_time_seconds", "When the process started, in seconds since the epoch.",
       Reading::GAUGE,
       [started = system_start() + stat_field(start_time) / ticks_a_second()] { return started; }},
  };
}

}  // namespace http
