#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/// Requests that differ in their ids, all as long as 1000000, and so in one length; and the answer
/// to that one.
struct Exchange {
  std::string before_id;
  std::string after_id;
  std::string answer;
};

/// A load of requests over so many connections, with so many in flight on each.
struct Callers_Load {
  unsigned int connections;
  unsigned int depth;
  /// A caller writes all it may in one go when answers come; else there are many who share a
  /// connection and write each for itself.
  bool joined;
};

/// The requests that a process answers in a second of its CPU time, over `sockets`, which are
/// closed.
double requests_per_cpu_second(pid_t server, const std::vector<int>& sockets,
                               const Exchange& exchange, const Callers_Load& load,
                               unsigned int requests);
