// Runs a fuzz target over every file of the folders that are given, without a fuzzer: so that each
// build compiles the targets and each test run repeats what was found once.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/input.h"

int main(int argc, char** argv) {
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::fprintf(stderr, "%s\n", path.c_str());  // the last one is the one that broke it
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  }
  return files.empty() ? 1 : 0;
}
