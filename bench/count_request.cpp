// The request path for callgrind and for counting allocations: `count_request floor|ours 68|1k|1m
// N` runs it N times and prints the allocations that one run makes.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "bench/request_path.h"

extern "C" void* __libc_malloc(size_t size);

namespace {

unsigned long allocations = 0;

}  // namespace

extern "C" void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: count_request floor|ours 68|1k|1m N\n");
    return 2;
  }
  request_path::set_up();
  const auto path = std::strcmp(argv[1], "floor") == 0 ? request_path::floor : request_path::ours;
  const std::string request = std::strcmp(argv[2], "68") == 0 ? request_path::small_request()
                              : std::strcmp(argv[2], "1k") == 0
                                  ? request_path::middle_request()
                                  : request_path::large_request(10'000);
  path(request);  // what is made once
  const unsigned long before = allocations;
  path(request);
  const unsigned long one = allocations - before;
  for (int i = std::atoi(argv[3]); i > 0; --i) path(request);
  std::printf("%zu bytes, %lu allocations a message\n", request.size(), one);
  return 0;
}
