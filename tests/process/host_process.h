#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "tests/process/child_process.h"

/// What the host is started with. The sample methods and those of the misbehaving plug-in are
/// configured unless `methods` or `svc` say otherwise.
struct Host_Setup {
  Host_Setup(Words words = {}) : options(std::move(words)) {}

  Words options;              ///< beside --svc; without --listen: port 0 on 127.0.0.1
  std::string pool = "-n 4";  ///< options of the service that concern its pool
  std::string methods;        ///< the text of the methods' file
  std::string svc;            ///< the text of svc.conf
};

/// A running json_rpc_host.
class Host_Process : public Child_Process {
public:
  explicit Host_Process(const Host_Setup& setup = Host_Setup());
  ~Host_Process();

  /// Until it is ready; false, and the test has failed, when it is not in time. The constructor
  /// does not wait.
  bool ready();
  /// The URLs that it listens on, in order, once it is ready.
  const std::vector<std::string>& urls() const { return urls_; }
  const std::string& url() const { return urls_.at(0); }

  /// SIGTERM, and a status of 0.
  void stop();

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
  std::string proc(const char* name) const;

  std::vector<std::string> urls_;
};
