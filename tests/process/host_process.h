#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif

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

/// A directory that goes with what is in it.
class Temporary_Directory {
public:
  Temporary_Directory();
  ~Temporary_Directory();
  Temporary_Directory(const Temporary_Directory&) = delete;
  Temporary_Directory& operator=(const Temporary_Directory&) = delete;

  /// The path of an entry.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file; its path.
  std::string write(const std::string& name, const std::string& text) const;

private:
  std::string path_;
};

/// What the host is started with. The sample methods and those of the misbehaving plug-in are
/// configured unless `methods` or `svc` say otherwise.
struct Host_Setup {
  std::vector<std::string> options;  ///< beside --svc; without --listen: port 0 on 127.0.0.1
  std::string pool = "-n 4";         ///< options of the service that concern its pool
  std::string methods;               ///< the text of the methods' file
  std::string svc;                   ///< the text of svc.conf
};

/// A running json_rpc_host; killed when it is still there at the end.
class Host_Process {
public:
  explicit Host_Process(const Host_Setup& setup = Host_Setup());
  ~Host_Process();
  Host_Process(const Host_Process&) = delete;
  Host_Process& operator=(const Host_Process&) = delete;

  /// Until it is ready; false, and the test has failed, when it is not in time. The constructor
  /// does not wait.
  bool ready();
  /// The URLs that it listens on, in order, once it is ready.
  const std::vector<std::string>& urls() const { return urls_; }
  const std::string& url() const { return urls_.at(0); }

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  /// Waits until it ends: its exit status, or 128 and the signal that ended it; -1 and a failed
  /// test when it goes on.
  int wait(std::chrono::milliseconds limit = host_patience);
  /// SIGTERM, and a status of 0.
  void stop();

  /// All that it has written so far.
  std::string output() const;
  std::string log() const;
  /// How often `part` stands in the log.
  std::size_t logged(const std::string& part) const;
  bool wait_for_log(const std::string& part) const;

  std::size_t descriptors() const;
  std::size_t threads() const;
  std::size_t resident_bytes() const;
  std::chrono::milliseconds cpu_time() const;
  /// Until it has `count` descriptors or fewer.
  bool wait_for_descriptors(std::size_t count) const;

private:
  bool ended();

  Temporary_Directory directory_;
  pid_t pid_ = -1;   // while it runs
  int status_ = -1;  // once it has ended
  std::vector<std::string> urls_;
};
