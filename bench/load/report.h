#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "bench/load/load.h"

/// One line of a table for all calls of a run, and one for each method where there are several.
void print_head(std::FILE* out);
void print_result(std::FILE* out, const Load& load, const Result& result);

/// Latency by percentile, a curve for each run, as an SVG file. False when it cannot be written.
bool plot(const std::string& file, const std::vector<Result>& results);
