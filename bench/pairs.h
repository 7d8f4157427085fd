#pragma once

#include <benchmark/benchmark.h>

#include <string>

/// What the programs have in common: bench/run holds `ours/NAME` against `floor/NAME` of the same
/// run.
namespace pairs {

/// Registers `role/name`; `operation` is timed by what it does before it returns.
template <typename Operation>
benchmark::internal::Benchmark* add(const std::string& role, const std::string& name,
                                    Operation operation) {
  return benchmark::RegisterBenchmark((role + "/" + name).c_str(),
                                      [operation](benchmark::State& state) mutable {
                                        for (auto _ : state) {
                                          benchmark::DoNotOptimize(operation());
                                        }
                                      });
}

template <typename Floor, typename Ours>
void add_pair(const std::string& name, Floor floor, Ours ours) {
  add("floor", name, floor);
  add("ours", name, ours);
}

/// The same where other threads take part: real time and the CPU time of all threads.
template <typename Floor, typename Ours>
void add_threaded_pair(const std::string& name, Floor floor, Ours ours) {
  add("floor", name, floor)->UseRealTime()->MeasureProcessCPUTime();
  add("ours", name, ours)->UseRealTime()->MeasureProcessCPUTime();
}

inline int run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace pairs
