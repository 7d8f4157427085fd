#pragma once

#include <string>
#include <string_view>

#include "json_spirit/json_spirit_value.h"
#include "vexa/yajl_gathered_output.h"
#include "vexa/yajl_gen_handle.h"

/// Writes the text of one message of known shape: objects whose members are given in order. Names,
/// plain texts, integers, flags and nulls go out as they are; for every other value there is yajl's
/// generator, made when the first one comes. A value that cannot be written stops the text there.
/// What is written waits in `output` for its flush(). One thread.
class JSON_RPC_Text {
public:
  explicit JSON_RPC_Text(YAJL_Gathered_Output& output) : output_(output) {}
  JSON_RPC_Text(const JSON_RPC_Text&) = delete;
  JSON_RPC_Text& operator=(const JSON_RPC_Text&) = delete;

  /// False after a value that cannot be written.
  bool ok() const { return ok_; }

  void map_open() {
    put("{");
    between_ = false;
  }
  void map_close() {
    put("}");
    between_ = true;
  }
  /// The name of the next member, which needs no escapes.
  void literal(std::string_view name) {
    put(between_ ? ",\"" : "\"");
    put(name);
    put("\":");
    between_ = true;
  }
  void integer(long long number);
  JSON_RPC_Text& operator<<(std::string_view text);
  JSON_RPC_Text& operator<<(const std::string& text) { return *this << std::string_view(text); }
  JSON_RPC_Text& operator<<(const json_spirit::Value& value);

private:
  void put(std::string_view text) {
    if (ok_) YAJL_Gathered_Output::print_s(&output_, text.data(), text.size());
  }
  template <typename Integer>
  void decimal(Integer number);
  yajl_gen_t* generator();

  YAJL_Gathered_Output& output_;
  bool ok_ = true;
  bool between_ = false;  // a member came before in the object that is open
  YAJL_Gen_Handle generator_;
};
