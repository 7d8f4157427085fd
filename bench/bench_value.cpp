// The value tree beside RapidJSON's document: each operation on a row of trees, and only it timed.

#include <vector>

#include "bench/give_up.h"
#include "bench/pairs.h"
#include "bench/value_path.h"

namespace {

using benchmark::State;
using value_path::Shape;

struct Row {
  Shape shape;
  std::size_t trees;               // that one iteration works on
  benchmark::IterationCount runs;  // given, for most take longer to prepare than to time
};

template <typename Side>
std::vector<typename Side::Tree> built(const Row& row) {
  std::vector<typename Side::Tree> trees;
  trees.reserve(row.trees);
  for (std::size_t i = 0; i < row.trees; ++i) trees.push_back(Side::build(row.shape));
  return trees;
}

template <typename Side>
void build(State& state, const Row& row) {
  for (auto _ : state) {
    std::vector<typename Side::Tree> trees = built<Side>(row);
    state.PauseTiming();
    trees.clear();
    state.ResumeTiming();
  }
}

template <typename Side>
void destroy(State& state, const Row& row) {
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<typename Side::Tree> trees = built<Side>(row);
    state.ResumeTiming();
    trees.clear();
  }
}

template <typename Side>
void copy(State& state, const Row& row) {
  const typename Side::Tree original = Side::build(row.shape);
  std::vector<typename Side::Tree> copies;
  copies.reserve(row.trees);
  for (auto _ : state) {
    for (std::size_t i = 0; i < row.trees; ++i) copies.push_back(Side::copy(original));
    state.PauseTiming();
    copies.clear();
    state.ResumeTiming();
  }
}

template <typename Side>
void compare(State& state, const Row& row) {
  const std::vector<typename Side::Tree> trees = built<Side>(row);
  const typename Side::Tree other = Side::build(row.shape);
  for (auto _ : state) {
    for (const typename Side::Tree& tree : trees) {
      if (tree != other) give_up("equal trees differ");
    }
  }
}

template <typename Side>
void move(State& state, const Row& row) {
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<typename Side::Tree> trees = built<Side>(row), moved;
    moved.reserve(row.trees);
    state.ResumeTiming();
    for (typename Side::Tree& tree : trees) moved.push_back(Side::move_elements(tree));
    state.PauseTiming();
    moved.clear();
    trees.clear();
    state.ResumeTiming();
  }
}

template <void (*floor)(State&, const Row&), void (*ours)(State&, const Row&)>
void add(const std::string& name, const Row& row) {
  benchmark::RegisterBenchmark(("floor/" + name).c_str(), floor, row)->Iterations(row.runs);
  benchmark::RegisterBenchmark(("ours/" + name).c_str(), ours, row)->Iterations(row.runs);
}

}  // namespace

int main(int argc, char** argv) {
  using value_path::Floor;
  using value_path::Ours;
  const Row members = {{20, false}, 100, 500}, records = {{10'000, true}, 1, 20};
  add<build<Floor>, build<Ours>>("build 100 of 20 members", members);
  add<build<Floor>, build<Ours>>("build 10000 records", records);
  add<copy<Floor>, copy<Ours>>("copy 100 of 20 members", members);
  add<copy<Floor>, copy<Ours>>("copy 10000 records", records);
  add<compare<Floor>, compare<Ours>>("compare 100 of 20 members", members);
  add<compare<Floor>, compare<Ours>>("compare 10000 records", records);
  add<destroy<Floor>, destroy<Ours>>("destroy 100 of 20 members", members);
  add<destroy<Floor>, destroy<Ours>>("destroy 10000 records", records);
  add<move<Floor>, move<Ours>>("move 10000 records", records);
  return pairs::run(argc, argv);
}
