// Puts a fixed rate of calls on a server and prints what became of them: README.md beside this.

#include <cstdio>

#include "bench/load/options.h"
#include "bench/load/report.h"

int main(int argc, char** argv) {
  Options options;
  int status;
  if (!options.parse(argc, argv, status)) return status;
  std::vector<Result> results;
  print_head(stdout);
  for (const double rate : options.rates) {
    options.load.rate = rate;
    results.emplace_back();
    std::string error;
    if (!run_load(options.load, results.back(), error)) {
      std::fprintf(stderr, "json_rpc_load: cannot connect: %s\n", error.c_str());
      return 1;
    }
    print_result(stdout, options.load, results.back());
    std::fflush(stdout);
    if (results.back().cut) {
      std::fprintf(stderr, "json_rpc_load: the server closed all connections\n");
      return 1;
    }
  }
  if (options.svg.empty() || plot(options.svg, results)) return 0;
  std::perror(options.svg.c_str());
  return 1;
}
