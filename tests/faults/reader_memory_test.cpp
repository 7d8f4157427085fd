// Reading messages when memory fails.

#include <gtest/gtest.h>

#include <string>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "json_rpc/json_rpc_reader.h"
#include "json_rpc/json_rpc_writer.h"
#include "tests/faults/failing_memory.h"
#include "tests/support/in_pieces.h"
#include "tests/support/json_rpc_fixture.h"
#include "vexa/json_reader.h"

using json_spirit::Value;

namespace {

const char* const long_text = "a text that is too long to be kept in place, by far";

std::string text_of(const JSON_RPC_Object& object) {
  std::string text;
  YAJL_String_Printer printer(text);
  JSON_RPC_Writer writer;
  writer.write(object, printer);
  return text;
}

bool read(JSON_RPC_Reader& reader, const Pieces& pieces) {
  if (!reader.open()) return false;
  for (const auto& piece : pieces) {
    if (!reader.read(piece.data(), piece.size())) return false;
  }
  return reader.read(nullptr, 0);
}

/// Collects what it sees, as filters do.
class Collecting_Filter final : public YAJL_Handler {
  bool handle_string_i(const char* text, std::size_t length) override {
    seen_.emplace_back(text, length);
    return true;
  }
  std::vector<std::string> seen_;
};

class Filter_Creator final : public JSON_RPC_Params_Handler_Creator {
public:
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override {
    return new Collecting_Filter;
  }
};

TEST(ReaderMemoryTest, ReaderRefusesWhatItCannotHoldAndReadsOn) {
  JSON_RPC_Params_Handler_Map::instance()->insert(
      "filtered", "", new Filter_Creator,
      [](void* creator) { delete static_cast<Filter_Creator*>(creator); });
  const std::string text(long_text);
  const std::string texts[] = {
      R"({"jsonrpc":"2.0","id":")" + text + R"(","method":")" + text + R"(","params":{"a":[1,")" +
          text + R"(",{}],"b":")" + text + R"("}})",
      R"({"jsonrpc":"2.0","method":"m","params":[[[1]],2.5,null]})",
      R"({"jsonrpc":"2.0","method":"m","params":["\u00e4 )" + text + R"(\n"]})",
      R"({"jsonrpc":"2.0","id":1,"method":"filtered","params":[")" + text + R"(",{"a":")" + text +
          R"("}]})",
      R"({"jsonrpc":")" + text + R"(","id":7,"result":{"x":")" + text + R"("}})",
      R"({"jsonrpc":"2.0","id":7,"error":{"code":-5,"message":")" + text + R"(","data":[")" + text +
          R"("]}})",
  };
  for (const std::string& t : texts) {
    SCOPED_TRACE(t);
    for (const std::size_t piece : {t.size(), std::size_t(1)}) {
      const Pieces pieces = cut_text(t, piece, piece);
      std::string expected;
      at_every_allocation([&](Failing_Memory& memory) {
        JSON_RPC_Reader reader;
        reader.mode(JSON_RPC_Reader::FILTER_REQUEST_MODE);
        bool accepted = false;
        memory([&] { accepted = read(reader, pieces); });
        EXPECT_TRUE(accepted ||
                    (memory.hit() && reader.error() == JSON_RPC_Reader::ERROR_NO_MEMORY));
        for (int again = 0; again < 2; ++again) {
          if (accepted) {
            const std::string message = text_of(*reader.object());
            if (expected.empty()) expected = message;
            EXPECT_EQ(expected, message);
          }
          accepted = read(reader, pieces);
          EXPECT_TRUE(accepted) << "the next message";
        }
      });
    }
  }
  JSON_RPC_Params_Handler_Map::close_instance();
}

TEST(ReaderMemoryTest, ATextIsReadOrSaidToBeTooMuch) {
  const std::string text = std::string("[\"\\n") + long_text + "\", {\"" + long_text + "\": 1}]";
  for (const std::size_t piece : {text.size(), std::size_t(7)}) {
    const Pieces pieces = cut_text(text, piece, piece);
    Value expected;
    at_every_allocation([&](Failing_Memory& memory) {
      JSON_Reader reader;
      bool whole = true;
      memory([&] {
        for (const auto& p : pieces) whole = whole && reader.read(p.data(), p.size());
        whole = whole && reader.end();
      });
      if (expected.is_null()) expected = reader.value();
      EXPECT_TRUE(whole ? reader.value() == expected : memory.hit()) << reader.error();
    });
  }
}

}  // namespace
