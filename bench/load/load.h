#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench/load/door.h"
#include "bench/load/histogram.h"

/// A method that is called, so often among all as its weight says.
struct Method {
  std::string name;
  std::string params;  // JSON; empty: none
  unsigned int weight = 1;
};

/// What is asked for, at one rate.
struct Load {
  Door door;
  unsigned int connections = 1;
  unsigned int depth = 1;  // calls in flight on each connection
  double rate = 1000;      // calls a second, over all connections
  double warm_up = 1;      // seconds that are not counted
  double seconds = 10;     // that are
  double grace = 5;        // seconds that the last answers get
  std::vector<Method> methods;
};

/// What came of a method's calls. Errors by their code, or by words where they have none.
struct Outcome {
  Histogram latencies;  // of all calls, those that came to nothing too
  std::map<std::string, std::uint64_t> errors;

  void add(const Outcome& other);
};

struct Result {
  double asked = 0;              // calls a second
  double reached = 0;            // answers a second
  bool cut = false;              // it ended early: the server had closed all connections
  std::vector<Outcome> methods;  // as in Load
  Outcome all;
};

/// Puts a load on, which takes warm_up + seconds, and at most grace more. Each call has a time at
/// which it is to be sent, whatever has become of the others, and its latency counts from there: a
/// server that stops for a while is charged for all calls of that while, also those that found no
/// place on a connection. False, with a reason, when not all connections come to stand.
bool run_load(const Load& load, Result& result, std::string& error);
