// Whatever a request's target is, what is served for it lies in the root, or is what a link within
// the root leads to within it; by either way of opening.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "fuzz/input.h"
#include "http/file_in_root.h"
#include "http/target.h"

namespace {

namespace fs = std::filesystem;

/// A root with files and links, and outside of it what must not be found.
class Tree {
public:
  Tree() {
    FUZZ_CHECK(::mkdtemp(path_) != nullptr);
    const fs::path top(path_), root = top / "r";
    fs::create_directories(root / "a/b");
    fs::create_directories(top / "rs");
    for (const fs::path& secret : {top / "s", top / "rs/a", top / "r.s"}) write(secret, "secret");
    for (const fs::path& open : {root / "f", root / "a/f", root / "a/b/f", root / "%2e"}) {
      write(open, "open");
    }
    const struct {
      const char* to;
      const char* link;
    } links[] = {{"../s", "x"},  {"..", "u"},         {"../../s", "a/x"}, {"/", "e"},
                 {"../rs", "l"}, {"/proc/self", "p"}, {"a/b", "i"},       {"../f", "a/i"}};
    for (const auto& link : links) fs::create_symlink(link.to, root / link.link);
    root_ = http::open_root(root.c_str());
    FUZZ_CHECK(root_ >= 0);
  }
  ~Tree() {
    ::close(root_);
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

  /// What a file below the root holds; empty for a folder, "none" where there is none.
  std::string open(const std::string& path, int (*open)(int, const char*)) const {
    const http::Descriptor file(open(root_, path.c_str()));
    if (!file.is_open()) return "none";
    char text[16];
    const ssize_t size = ::read(file.get(), text, sizeof text);
    if (size < 0) check_folder(file.get());
    return std::string(text, size < 0 ? 0 : size);
  }

private:
  static void write(const fs::path& path, const char* text) { std::ofstream(path) << text; }

  /// A folder that was opened is the root or lies in it.
  void check_folder(int descriptor) const {
    char name[4096];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = ::readlink(link.c_str(), name, sizeof name);
    const std::string root = std::string(fs::canonical(path_)) + "/r";
    const std::string_view found(name, size < 0 ? 0 : size);
    FUZZ_CHECK(found == root || found.substr(0, root.size() + 1) == root + "/");
  }

  char path_[32] = "/tmp/fuzz_rootXXXXXX";
  int root_ = -1;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Tree tree;
  const std::string text(reinterpret_cast<const char*>(data), size);
  http::Target target{"none", ""};
  const int status = http::parse_target(text, target);
  FUZZ_CHECK(status == 0 || status == 400);
  FUZZ_CHECK(status == 0 || target.path == "none");
  // The path as it is served, and the text as it came: opening trusts neither.
  for (const std::string& path : {target.path.substr(1), target.path, text}) {
    const std::string linked = tree.open(path, &http::open_in_root);
    const std::string plain = tree.open(path, &http::open_by_steps);
    for (const std::string& found : {linked, plain}) {
      FUZZ_CHECK(found == "open" || found == "" || found == "none");
    }
  }
  if (status != 0 || target.path == "*") return 0;
  http::Target again;
  FUZZ_CHECK(http::parse_target(http::to_uri(target.path, target.query), again) == 0);
  FUZZ_CHECK(again.path == target.path && again.query == target.query);
  return 0;
}
