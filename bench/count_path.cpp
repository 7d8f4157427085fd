// One path for callgrind and for counting allocations: `count_path PATH floor|ours 68B|1KB|1MB N`
// runs it N times and prints the allocations that one run makes. The paths are those of `path_of`.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "bench/bare_yajl.h"
#include "bench/give_up.h"
#include "bench/messages.h"
#include "bench/reader_path.h"
#include "bench/request_path.h"
#include "bench/value_path.h"
#include "bench/writer_path.h"

extern "C" void* __libc_malloc(size_t size);

namespace {

unsigned long allocations = 0;

typedef std::function<void()> Path;

Path reader_of(bool ours, const std::string& text, std::size_t piece) {
  if (ours) return [=] { reader_path::ours(text, piece); };
  return [=] { bare_yajl::parse(text, piece); };
}

Path filter_of(bool ours, const std::string& text) {
  if (ours) return [=] { reader_path::filtered(text, 0); };
  return [=] { bare_yajl::parse(text, 0); };
}

Path request_of(bool ours, const std::string& text) {
  request_path::set_up();
  return [=] { ours ? request_path::ours(text) : request_path::floor(text); };
}

Path writer_of(bool ours, const std::string& text) {
  if (ours) return [message = writer_path::message_of(text)] { writer_path::ours(*message); };
  return [events = bare_yajl::events_of(text), sink = std::string()]() mutable {
    sink.clear();
    bare_yajl::generate(events, sink);
  };
}

/// Builds a tree, copies it, compares the two and destroys them.
template <typename Side>
Path value_of(const std::string& size) {
  const bool large = size == "1MB";
  const value_path::Shape shape = {large ? 10'000u : 20u, large};
  return [=] {
    const typename Side::Tree tree = Side::build(shape);
    if (tree != Side::copy(tree)) give_up("a tree differs from its copy");
  };
}

/// Empty when there is none of that name.
Path path_of(const std::string& name, bool ours, const std::string& size, const std::string& text) {
  if (name == "request") return request_of(ours, text);
  if (name == "filter") return filter_of(ours, text);
  if (name == "writer") return writer_of(ours, text);
  if (name == "value") {
    return ours ? value_of<value_path::Ours>(size) : value_of<value_path::Floor>(size);
  }
  if (name.rfind("reader-by-", 0) == 0) {
    return reader_of(ours, text, std::strtoul(name.c_str() + 10, nullptr, 10));
  }
  return {};
}

/// Empty when there is none of that size.
std::string text_of(const std::string& size) {
  for (const messages::Named& message : messages::all()) {
    if (size == message.name) return message.text;
  }
  return std::string();
}

}  // namespace

extern "C" void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}

int main(int argc, char** argv) {
  const std::string text = argc == 5 ? text_of(argv[3]) : "";
  const Path path =
      text.empty() ? Path() : path_of(argv[1], std::string(argv[2]) == "ours", argv[3], text);
  if (!path) {
    std::fprintf(stderr, "usage: count_path PATH floor|ours 68B|1KB|1MB N\n");
    return 2;
  }
  path();  // what is made once
  const unsigned long before = allocations;
  path();
  const unsigned long one = allocations - before;
  for (int i = std::atoi(argv[4]); i > 0; --i) path();
  std::printf("%zu bytes, %lu allocations a message\n", text.size(), one);
  return 0;
}
