#include "json_rpc/json_rpc_text.h"

#include <charconv>

#include "vexa/json_plain_text.h"
#include "vexa/utf8.h"
#include "vexa/yajl_gen.h"

using json_spirit::Value;

namespace {

bool is_plain(std::string_view text) {
  return vexa::json_plain_prefix(text.data(), text.size()) == text.size() &&
         vexa::utf8_valid_prefix(text.data(), text.size()) == text.size();
}

}  // namespace

template <typename Integer>
void JSON_RPC_Text::decimal(Integer number) {
  char text[24];
  const char* const end = std::to_chars(text, text + sizeof text, number).ptr;
  put({text, static_cast<std::size_t>(end - text)});
}

void JSON_RPC_Text::integer(long long number) { decimal(number); }

JSON_RPC_Text& JSON_RPC_Text::operator<<(std::string_view text) {
  if (is_plain(text)) {
    put("\"");
    put(text);
    put("\"");
  } else {
    ok_ = ok_ && YAJL_Gen(generator(), false).string(text);
  }
  return *this;
}

JSON_RPC_Text& JSON_RPC_Text::operator<<(const Value& value) {
  switch (value.type()) {
    case json_spirit::str_type:
      return *this << std::string_view(value.get_str());
    case json_spirit::int_type:
      if (value.is_uint64()) {
        decimal(value.get_uint64());
      } else {
        decimal(value.get_int64());
      }
      break;
    case json_spirit::bool_type:
      put(value.get_bool() ? "true" : "false");
      break;
    case json_spirit::null_type:
      put("null");
      break;
    default:
      ok_ = ok_ && YAJL_Gen(generator(), false).value(value);
  }
  return *this;
}

/// Ready for one value; null without memory.
yajl_gen_t* JSON_RPC_Text::generator() {
  if (generator_.get() == nullptr) {
    return generator_.open(&YAJL_Gathered_Output::print_s, &output_);
  }
  yajl_gen_reset(generator_.get(), nullptr);
  return generator_.get();
}
