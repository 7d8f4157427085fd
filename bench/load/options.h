#pragma once

#include <string>
#include <vector>

#include "bench/load/load.h"

/// What the command line asks for.
struct Options {
  Load load;  // its rate is one of `rates`
  std::vector<double> rates;
  std::string svg;  // the file of the plot; empty: none

  /// False when the program is to end at once, with `status`.
  bool parse(int argc, char** argv, int& status);
};
