#include "bench/load/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <iterator>

namespace {

constexpr std::size_t most_methods = 200;

/// NAME:PARAMS:WEIGHT; PARAMS may be empty, and hold colons.
bool parse_method(const std::string& text, Method& method) {
  const std::size_t first = text.find(':');
  const std::size_t last = text.rfind(':');
  if (first == 0 || first == std::string::npos || first == last) return false;
  method.name = text.substr(0, first);
  method.params = text.substr(first + 1, last - first - 1);
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data() + last + 1, end, method.weight);
  return read.ec == std::errc() && read.ptr == end;
}

bool parse_methods(const std::vector<std::string>& texts, std::vector<Method>& methods) {
  unsigned int weights = 0;
  for (const std::string& text : texts) {
    methods.emplace_back();
    if (!parse_method(text, methods.back())) return false;
    weights += methods.back().weight;
  }
  return weights > 0 && methods.size() <= most_methods;
}

}  // namespace

bool Options::parse(int argc, char** argv, int& status) {
  CLI::App app("Calls a server at a fixed rate and prints how long the answers took.");
  app.option_defaults()->always_capture_default()->multi_option_policy(
      CLI::MultiOptionPolicy::TakeLast);
  std::string url = "tcp://127.0.0.1:7070";
  std::vector<std::string> methods = {"sum:[1,2,3]:1"};
  rates = {1000};
  app.add_option("--url", url, "tcp://HOST:PORT, unix://PATH, http://HOST:PORT[/PATH] or ws://...");
  app.add_option("--connections", load.connections, "How many connections")
      ->check(CLI::Range(1, 100000));
  app.add_option("--depth", load.depth, "Calls in flight on each connection, at most")
      ->check(CLI::Range(1, 100000));
  app.add_option("--rate", rates, "Calls a second, over all connections; repeatable: a run each")
      ->take_all()
      ->check(CLI::Range(0.1, 1e7));
  app.add_option("--warm-up", load.warm_up, "Seconds that are not counted")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--seconds", load.seconds, "Seconds that are")->check(CLI::Range(0.01, 86400.0));
  app.add_option("--grace", load.grace, "Seconds that the last answers get")
      ->check(CLI::Range(0.0, 3600.0));
  app.add_option("--method", methods, "NAME:PARAMS:WEIGHT, repeatable; PARAMS may be empty")
      ->take_all();
  app.add_option("--svg", svg, "Where a plot of latency by percentile goes");
  status = 2;
  try {
    app.parse(argc, argv);
    if (!Door::parse(url, load.door)) throw CLI::ValidationError("--url", url);
    if (!parse_methods(methods, load.methods)) {
      throw CLI::ValidationError("--method", "NAME:PARAMS:WEIGHT is expected");
    }
  } catch (const CLI::ParseError& error) {
    const int result = app.exit(error);
    if (result == 0) status = 0;
    return false;
  }
  return true;
}
