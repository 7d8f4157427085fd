// The request path by CPU time: floor and ours, each on the same input.

#include <benchmark/benchmark.h>

#include "bench/request_path.h"

namespace {

void run(benchmark::State& state, std::size_t (*path)(const std::string&),
         const std::string& request) {
  for (auto _ : state) benchmark::DoNotOptimize(path(request));
  state.SetBytesProcessed(state.iterations() * request.size());
}

}  // namespace

int main(int argc, char** argv) {
  request_path::set_up();
  const std::string requests[] = {request_path::small_request(), request_path::middle_request(),
                                  request_path::large_request(10'000)};
  const char* const names[] = {"68B", "1KB", "1MB"};
  for (int i = 0; i < 3; ++i) {
    const std::string& request = requests[i];
    benchmark::RegisterBenchmark((std::string("floor/") + names[i]).c_str(), run,
                                 request_path::floor, request);
    benchmark::RegisterBenchmark((std::string("ours/") + names[i]).c_str(), run, request_path::ours,
                                 request);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
