#include "tools/json_rpc_call/params.h"

#include <yajl/yajl_parse.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "vexa/json_reader.h"
#include "vexa/yajl_error.h"
#include "vexa/yajl_forward_handler.h"
#include "vexa/yajl_gen.h"

namespace {

// A string that spans pieces is scanned anew with each, so they are large.
constexpr std::size_t piece = 256u << 10;

struct Free_Handle {
  void operator()(yajl_handle handle) const { yajl_free(handle); }
};
typedef std::unique_ptr<yajl_handle_t, Free_Handle> Parse_Handle;

std::string parse_error(yajl_handle handle, yajl_status status) {
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
  const Parse_Handle handle(
      yajl_alloc(get_yajl_default_callbacks(), nullptr, static_cast<YAJL_Handler*>(&forward)));
  if (handle == nullptr) {
    error_ = "there is no memory";
    return false;
  }
  return pump([&](const char* data, std::size_t length) {
    const auto text = reinterpret_cast<const unsigned char*>(data);
    const yajl_status status =
        length == 0 ? yajl_complete_parse(handle.get()) : yajl_parse(handle.get(), text, length);
    if (status == yajl_status_ok) return true;
    error_ = input_.name() + " is no JSON: " + parse_error(handle.get(), status);
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
