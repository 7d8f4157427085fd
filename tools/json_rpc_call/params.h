#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "json_spirit/json_spirit_value.h"
#include "tools/json_rpc_call/input.h"
#include "vexa/json_generator.h"

/// The JSON value that an Input holds, written piece by piece as it is read. One thread, but for
/// bytes() and complete().
class Params final : public JSON_Generator {
public:
  /// Borrows the input, which is open.
  explicit Params(Input& input) : input_(input) {}

  /// Asked now and then while they are written: true ends it, since nobody wants the rest.
  void stop_when(std::function<bool()> unwanted) { unwanted_ = std::move(unwanted); }

  /// Writes the value. False with error() when the input cannot be read or is no JSON, without when
  /// nobody wants it.
  bool generate_i(YAJL_Gen& gen) override;

  /// Reads the value and drops it; false with error().
  bool check();
  /// Reads the value; false with error().
  bool read(json_spirit::Value& value);

  /// What was wrong with the input, "" when nothing was.
  const std::string& error() const { return error_; }

  /// How many bytes of the input have been read, and whether that was all.
  std::uint64_t bytes() const { return bytes_; }
  bool complete() const { return complete_; }

private:
  template <typename Consumer>
  bool pump(Consumer consume);
  bool parse(yajl_gen_t* gen);

  Input& input_;
  std::function<bool()> unwanted_;
  std::string error_;
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<bool> complete_{false};
};
