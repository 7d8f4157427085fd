#include "bench/reader_path.h"

#define RAPIDJSON_SSE2
#include <rapidjson/reader.h>

#include <algorithm>
#include <new>

#include "bench/give_up.h"
#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_reader.h"

namespace {

std::size_t counted = 0;

class Counter final : public YAJL_Handler {
public:
  bool handle_null_i() override { return ++counted; }
  bool handle_boolean_i(bool) override { return ++counted; }
  bool handle_number_i(const char*, std::size_t) override { return ++counted; }
  bool handle_string_i(const char*, std::size_t) override { return ++counted; }
  bool handle_start_map_i() override { return ++counted; }
  bool handle_map_key_i(const char*, std::size_t) override { return ++counted; }
  bool handle_end_map_i() override { return ++counted; }
  bool handle_start_array_i() override { return ++counted; }
  bool handle_end_array_i() override { return ++counted; }
};

class Counter_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    return new (std::nothrow) Counter;
  }
};

void read(JSON_RPC_Reader& reader, const std::string& text, std::size_t piece) {
  if (piece == 0) piece = text.size();
  for (std::size_t at = 0; at < text.size(); at += piece) {
    if (!reader.read(text.data() + at, std::min(piece, text.size() - at))) {
      give_up("the reader refuses the text");
    }
  }
  if (reader.message() == nullptr) give_up("the reader has no message");
}

}  // namespace

namespace reader_path {

std::size_t ours(const std::string& text, std::size_t piece) {
  static JSON_RPC_Reader reader;
  if (!reader.open()) give_up("the reader does not open");
  read(reader, text, piece);
  reader.close();
  return text.size();
}

std::size_t filtered(const std::string& text, std::size_t piece) {
  static JSON_RPC_Reader* const reader = [] {
    JSON_RPC_Params_Handler_Map::instance()->insert("sum", "", new Counter_Creator, nullptr);
    auto* const made = new JSON_RPC_Reader;
    made->mode(JSON_RPC_Reader::OBJECT_MODE | JSON_RPC_Reader::FILTER_REQUEST_MODE);
    return made;
  }();
  counted = 0;
  if (!reader->open()) give_up("the reader does not open");
  read(*reader, text, piece);
  if (!reader->handled_indirectly() || counted == 0) give_up("the params were not filtered");
  reader->close();
  return text.size();
}

std::size_t rapidjson(const std::string& text) {
  using namespace ::rapidjson;
  struct Ignore : BaseReaderHandler<UTF8<>, Ignore> {
  } ignore;
  Reader reader;
  StringStream stream(text.c_str());
  constexpr unsigned int flags = kParseNumbersAsStringsFlag | kParseValidateEncodingFlag;
  if (!reader.Parse<flags>(stream, ignore)) give_up("RapidJSON cannot parse the text");
  return text.size();
}

}  // namespace reader_path
