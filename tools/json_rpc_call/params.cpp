#include "tools/json_rpc_call/params.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include "vexa/json_reader.h"
#include "vexa/yajl_error.h"
#include "vexa/yajl_forward_handler.h"
#include "vexa/yajl_gen.h"
#include "vexa/yajl_parse_handle.h"

namespace {

// A string that spans pieces is scanned anew with each, so they are large.
constexpr std::size_t piece = 256u << 10;

std::string parse_error(YAJL_Parse_Handle& handle, yajl_status status) {
  if (status == yajl_status_client_canceled) return "it is nested too deeply";
  std::string text = YAJL_Error(handle, false, nullptr, 0).c_str();
  while (!text.empty() && (text.back() == '\n' || text.back() == '.')) text.pop_back();
  return text;
}

}  // namespace

/// Reads the input from its beginning and gives consume(data, length) each piece, and at the end an
/// empty one, until that is false.
template <typename Consumer>
bool Params::pump(Consumer consume) {
  error_.clear();
  bytes_ = 0;
  complete_ = false;
  std::vector<char> buffer(piece);
  if (input_.repeatable()) input_.rewind();
  for (;;) {
    const ssize_t length = input_.read(buffer.data(), buffer.size());
    if (length == -1) {
      error_ = "cannot read " + input_.name() + ": " + std::strerror(errno);
      return false;
    }
    if (!consume(buffer.data(), static_cast<std::size_t>(length))) return false;
    bytes_ += length;
    if (length == 0) break;
    if (unwanted_ && unwanted_()) return false;
  }
  complete_ = true;
  return true;
}

bool Params::parse(yajl_gen_t* gen) {
  YAJL_Forward_Handler forward;
  forward.generate_handle(gen);
  YAJL_Parse_Handle handle;
  if (!handle.open(get_yajl_default_callbacks(), static_cast<YAJL_Handler*>(&forward))) {
    error_ = "there is no memory";
    return false;
  }
  return pump([&](const char* data, std::size_t length) {
    const yajl_status status = handle.feed(data, length);
    if (status == yajl_status_ok) return true;
    if (!handle.is_open()) {
      error_ = "there is no memory";
      return false;
    }
    error_ = input_.name() + " is no JSON: " + parse_error(handle, status);
    const std::size_t inside = length == 0 ? 0 : yajl_get_bytes_consumed(handle.get());
    error_ += ", at byte " + std::to_string(bytes_ + inside);
    return false;
  });
}

bool Params::generate_i(YAJL_Gen& gen) { return parse(gen.get()) && gen.ok(); }

bool Params::check() { return parse(nullptr); }

bool Params::read(json_spirit::Value& value) {
  JSON_Reader reader;
  const bool whole = pump([&](const char* data, std::size_t length) {
    if (length == 0 ? reader.end() : reader.read(data, length)) return true;
    error_ = input_.name() + " is no JSON: " + reader.error();
    return false;
  });
  if (whole) value = std::move(reader.value());
  return whole;
}
