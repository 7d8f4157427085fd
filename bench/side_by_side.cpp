#include "bench/side_by_side.h"

#include <sched.h>
#include <time.h>

#include <algorithm>
#include <cstdio>

#include "bench/give_up.h"

namespace {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void print_figure(double figure) {
  std::printf(" %.*f |", figure < 10 ? 2 : figure < 1000 ? 1 : 0, figure);
}

}  // namespace

void pin(pid_t process, int core) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(core, &set);
  if (::sched_setaffinity(process, sizeof set, &set) != 0) give_up("sched_setaffinity");
}

double cpu_seconds(pid_t process) {
  clockid_t clock;
  timespec time;
  if (::clock_getcpuclockid(process, &clock) != 0 || ::clock_gettime(clock, &time) != 0) {
    give_up("clock_getcpuclockid");
  }
  return time.tv_sec + time.tv_nsec / 1e9;
}

Side_By_Side::Side_By_Side(const std::string& head, Better better, const std::string& other)
    : better_(better) {
  std::printf("| %s | floor | ours | of the floor's speed |", head.c_str());
  if (!other.empty()) std::printf(" %s, of the floor's speed |", other.c_str());
  std::printf("\n|---|---|---|---|%s\n", other.empty() ? "" : "---|");
}

void Side_By_Side::measure(const std::vector<Row>& rows, unsigned int rounds) const {
  std::vector<std::vector<std::vector<double>>> figures(rows.size());  // of each row, of each side
  for (unsigned int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      figures[i].resize(rows[i].sides.size());
      for (std::size_t side = 0; side < rows[i].sides.size(); ++side) {
        figures[i][side].push_back(rows[i].sides[side]());
      }
    }
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const double floor = median(figures[i][0]);
    std::printf("| %s |", rows[i].name.c_str());
    print_figure(floor);
    print_figure(median(figures[i][1]));
    for (std::size_t side = 1; side < figures[i].size(); ++side) {
      const double figure = median(figures[i][side]);
      std::printf(" %.2f |", better_ == LESS ? floor / figure : figure / floor);
    }
    std::printf("\n");
  }
  std::fflush(stdout);
}
