#include "bench/load/report.h"

namespace {

std::string errors_of(const Outcome& outcome) {
  std::string text;
  for (const auto& error : outcome.errors) {
    if (!text.empty()) text += ", ";
    text += error.first + ": " + std::to_string(error.second);
  }
  return text.empty() ? "none" : text;
}

void print_latencies(std::FILE* out, const Histogram& latencies) {
  for (const double q : {0.5, 0.9, 0.99, 0.999, 1.0}) {
    std::fprintf(out, " %.3f |", latencies.quantile(q) / 1e6);
  }
}

}  // namespace

void print_head(std::FILE* out) {
  std::fputs(
      "| calls | asked, 1/s | reached, 1/s | p50, ms | p90 | p99 | p99.9 | max | errors |\n"
      "|---|---|---|---|---|---|---|---|---|\n",
      out);
}

void print_result(std::FILE* out, const Load& load, const Result& result) {
  std::fprintf(out, "| all | %.0f | %.0f |", result.asked, result.reached);
  print_latencies(out, result.all.latencies);
  std::fprintf(out, " %s |\n", errors_of(result.all).c_str());
  for (std::size_t i = 0; load.methods.size() > 1 && i < load.methods.size(); ++i) {
    const Outcome& outcome = result.methods[i];
    std::fprintf(out, "| %s | | |", load.methods[i].name.c_str());
    print_latencies(out, outcome.latencies);
    std::fprintf(out, " %s |\n", errors_of(outcome).c_str());
  }
}
