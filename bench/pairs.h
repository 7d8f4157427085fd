#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

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
  // As in a process that has been running for long: what is freed stays with the heap. Otherwise
  // large trees would pay for their pages again and again, and more than for all the rest.
  ::mallopt(M_TRIM_THRESHOLD, 1 << 30);
  ::mallopt(M_MMAP_THRESHOLD, 1 << 30);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace pairs
