#include "json_rpc/json_rpc_reader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "json_rpc/json_rpc_params_handler_creator.h"
#include "json_rpc/json_rpc_params_handler_map.h"
#include "tests/support/in_pieces.h"
#include "tests/support/json_rpc_fixture.h"

using json_spirit::Value;

namespace {

/// Type and text of a message, "none" without one.
std::string describe(const JSON_RPC_Object_var& object) {
  if (object.get() == nullptr) return "none";
  std::string text = std::to_string(object->type) + ' ';
  YAJL_String_Printer printer(text);
  JSON_RPC_Writer().write(*object, printer);
  return text;
}

/// The message that was read, or the error.
std::string read_all(JSON_RPC_Reader& reader, const Pieces& pieces) {
  bool accepted = true;
  for (const auto& piece : pieces) accepted = accepted && reader.read(piece.data(), piece.size());
  if (accepted && reader.read(nullptr, 0)) return describe(reader.object());
  return (reader.refused() ? "refused " : "no json ") + std::to_string(reader.error());
}

std::string read_message(const Pieces& pieces) {
  JSON_RPC_Reader reader;
  EXPECT_TRUE(reader.open());
  return read_all(reader, pieces);
}

typedef std::pair<std::string, std::string> Text_And_Message;

TEST(JsonRpcReaderTest, BuildsTheMessageThatTheMembersSay) {
  Log_Capture log;
  const std::string deep = std::string(124, '[') + std::string(124, ']');
  const Text_And_Message cases[] = {
      {R"({"jsonrpc":"2.0","method":"sum","params":[1,2],"id":3})",
       R"(2 {"jsonrpc":"2.0","id":3,"method":"sum","params":[1,2]})"},
      {R"({"method":"n"})", R"(1 {"jsonrpc":"","method":"n"})"},
      // Kept: only an id that comes later makes a request of a notification, even a null one.
      {R"({"id":null,"method":"m"})", R"(1 {"jsonrpc":"","method":"m"})"},
      {R"({"method":"m","id":null})", R"(2 {"jsonrpc":"","id":null,"method":"m"})"},
      {R"({"id":"a","params":{}})", R"(2 {"jsonrpc":"","id":"a","method":"","params":{}})"},
      {R"({"params":{"id":[{}],"method":1},"method":"m","id":18446744073709551615})",
       R"(2 {"jsonrpc":"","id":18446744073709551615,"method":"m","params":{"id":[{}],"method":1}})"},
      {R"({"method":"m","params":{"a":1},"params":[2],"method":"n"})",
       R"(1 {"jsonrpc":"","method":"n","params":[2]})"},
      {R"({"method":"m","params":)" + deep + "}",
       R"(1 {"jsonrpc":"","method":"m","params":)" + deep + "}"},
      {R"({"jsonrpc":"2.0","id":-9223372036854775808,"result":{"a":[1,{"b":null}],"":2}})",
       R"(3 {"jsonrpc":"2.0","id":-9223372036854775808,"result":{"":2,"a":[1,{"b":null}]}})"},
      {R"({"error":{"data":{"k":[1]},"message":""},"id":1})",
       R"(4 {"jsonrpc":"","id":1,"error":{"code":-32603,"message":"","data":{"k":[1]}}})"},
      {R"({"error":{"data":[2],"data":"d","code":4294967295}})",
       R"(4 {"jsonrpc":"","id":null,"error":{"code":-1,"message":"","data":"d"}})"},
      {R"({"error":{"data":)" + deep + "}}",
       R"(4 {"jsonrpc":"","id":null,"error":{"code":-32603,"message":"","data":)" + deep + "}}"},
      {R"({"jsonrpc":"2.0","id":1})", "none"},
      {"7 ", "none"},  // Kept: unlike null and true, it says nothing
      {"null", "refused 3"},
      {"true", "refused 3"},
      {R"([{"method":"m"}])", "refused 3"},
      // Members that are unknown, or whose type is not theirs.
      {R"({"method":"m","foo":1})", "refused 5"},
      {R"({"id\u0000":1})", "refused 5"},
      {R"({"id":true})", "refused 5"},
      {R"({"jsonrpc":2})", "refused 5"},
      {R"({"method":null})", "refused 5"},
      {R"({"error":null})", "refused 5"},
      {R"({"error":{"other":2}})", "refused 5"},
      {R"({"error":{"code":""}})", "refused 5"},
      {"", "no json 0"},
      {"{/**/}", "no json 0"},
      {"{\"\xFF", "no json 0"},
      // An id or a code of the wrong kind, numbers that no double holds, depth.
      {R"({"id":1.5,"result":0})", "refused 9"},
      {R"({"id":123456789012345678901234567890,"result":0})", "refused 9"},
      {R"({"error":{"code":1.5}})", "refused 4"},
      {R"({"method":"m","params":1e400})", "refused 9"},
      {R"({"method":"m","params":[1e400]})", "refused 0"},
      {R"({"method":"m","params":[)" + deep + "]}", "refused 6"},
      {R"({"error":{"data":{"a":)" + deep + "}}}", "refused 6"},
      // Members of two kinds.
      {R"({"result":1,"method":"m"})", "refused 9"},
      {R"({"method":"m","error":{"code":1}})", "refused 9"},
      {R"({"error":{"message":""},"result":1})", "refused 9"},
      {R"({"result":[],"error":{"data":1}})", "refused 9"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.second, however_cut(c.first, read_message)) << c.first;
  log.clear();
  const std::string bad = R"({"error":{"other":2}})";
  read_message(cut_text(bad, bad.size(), 1));
  EXPECT_EQ(1u, log.count("parse error: client cancelled parse via callback return value\n"));
  EXPECT_EQ(1u, log.count(", callback=5, err=5, level=2, key=0, parent_key=32\n"));
}

TEST(JsonRpcReaderTest, OneMessageLeavesNothingToTheNext) {
  Log_Capture log;
  const JSON_RPC_Channel_var channel = make_fake_channel();
  JSON_RPC_Reader reader;
  for (const char* broken_off :
       {R"({"jsonrpc":"2.0","id":5,"params":{"a":[)", R"({"id":1.5)", R"({"error":{"data":[[)",
        R"({"jsonrpc":"2.0","id":5,"result":1})"}) {
    reader.open();
    EXPECT_EQ(JSON_RPC_Reader::STATE_PARSING, reader.state());
    reader.channel(channel);
    reader.request_channel(channel);
    reader.read(broken_off, std::strlen(broken_off));
    const JSON_RPC_Object_var kept = reader.object();
    const std::string before = describe(kept);
    reader.open();
    EXPECT_EQ(before, describe(kept)) << "who took the message keeps it as it was";
    EXPECT_TRUE(reader.object().get() == nullptr && reader.request_channel().null());
    EXPECT_TRUE(reader.id().is_null());
    EXPECT_EQ(R"(1 {"jsonrpc":"","method":"m"})",
              read_all(reader, cut_text(R"({"method":"m"})", 3, 3)));
    // Cleared in the middle, it never writes into what is gone.
    reader.open();
    reader.read(broken_off, std::strlen(broken_off));
    reader.clear();
    EXPECT_TRUE(reader.state() == JSON_RPC_Reader::STATE_INIT && reader.object().get() == nullptr);
    reader.read("2]}}", 4);
  }
  EXPECT_EQ(0u, fake(channel).count());
}

/// What filters saw, in order, "~" when one goes.
std::string seen;

class Filter : public YAJL_Handler {
public:
  ~Filter() override { seen += '~'; }
  bool handle_null_i() override { return note("null"); }
  bool handle_boolean_i(bool value) override { return note(value ? "true" : "false"); }
  bool handle_number_i(const char* text, std::size_t length) override {
    return note(std::string(text, length));
  }
  bool handle_string_i(const char* text, std::size_t length) override {
    const std::string said(text, length);
    if (said == "throw") throw std::runtime_error("oops");
    return note('\'' + said + '\'') && said != "refuse";
  }
  bool handle_start_map_i() override { return note("{"); }
  bool handle_map_key_i(const char* text, std::size_t length) override {
    return note(std::string(text, length) + ':');
  }
  bool handle_end_map_i() override { return note("}"); }
  bool handle_start_array_i() override { return note("["); }
  bool handle_end_array_i() override { return note("]"); }

private:
  bool note(const std::string& event) {
    seen += event + ' ';
    return true;
  }
};

struct Filter_Creator : JSON_RPC_Params_Handler_Creator {
  YAJL_Handler* create(JSON_RPC_Channel_ptr, JSON_RPC_Object_var) override { return new Filter; }
};

class FilterTest : public ::testing::Test {
protected:
  FilterTest() {
    JSON_RPC_Params_Handler_Map::instance()->insert("f", "", new Filter_Creator, nullptr);
  }
  ~FilterTest() override { JSON_RPC_Params_Handler_Map::close_instance(); }

  /// The message, and what the filters saw.
  std::string filter(const Pieces& pieces) {
    seen.clear();
    std::string message;
    {
      JSON_RPC_Reader reader;
      reader.mode(JSON_RPC_Reader::FILTER_REQUEST_MODE | JSON_RPC_Reader::FORWARD_REQUEST_MODE);
      reader.open();
      message = read_all(reader, pieces);
      message += reader.handled_indirectly() ? " + " : " - ";
      reader.close();
      EXPECT_TRUE(!reader.handled_indirectly() && (seen.empty() || seen.back() == '~'));
    }
    return message + seen;
  }

  Log_Capture log_;
};

TEST_F(FilterTest, ParamsGoToTheFilterWhoseLifeEndsWithThem) {
  const std::string deep = std::string(124, '[') + std::string(124, ']');
  const Text_And_Message cases[] = {
      {R"({"id":1,"method":"f","params":{"a":[1,{}],"b":null}})",
       R"(2 {"jsonrpc":"","id":1,"method":"f"} + { a: [ 1 { } ] b: null } ~)"},
      {R"({"method":"f","params":[],"id":3,"jsonrpc":"2"})",
       R"(2 {"jsonrpc":"2","id":3,"method":"f"} + [ ] ~)"},
      // A scalar is all there is: what comes next is the message's again.
      {R"({"method":"f","params":1e400,"id":3})",
       R"(2 {"jsonrpc":"","id":3,"method":"f"} + 1e400 ~)"},
      {R"({"method":"f","params":"s","params":[2]})",
       R"(1 {"jsonrpc":"","method":"f"} + 's' ~[ 2 ] ~)"},
      {R"({"method":"other","params":[1]})",
       R"(1 {"jsonrpc":"","method":"other","params":[1]} - )"},
      {R"({"params":[1],"method":"f"})", R"(1 {"jsonrpc":"","method":"f","params":[1]} - )"},
      {R"({"method":"f","params":"refuse","id":3})", "refused 0 + 'refuse' ~"},
      {R"({"method":"f","params":{"a":"throw"}})", "refused 0 + { a: ~"},
      {R"({"method":"f","params":[1,)", "no json 0 + [ 1 ~"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.second, however_cut(c.first, [this](const Pieces& p) { return filter(p); }));
  }
  EXPECT_NE(0u, log_.count("A handler of parse events failed: oops\n"));
  const auto head = [this](const std::string& value) {
    return filter(cut_text(R"({"method":"f","params":)" + value + "}", 4096, 1)).substr(0, 9);
  };
  EXPECT_EQ("1 {\"jsonr", head(deep));
  EXPECT_EQ("refused 6", head('[' + deep + ']'));
}

/// Filters results, as the owner of calls may.
class Result_Filter_Reader : public JSON_RPC_Reader {
public:
  bool handle_key_i(unsigned int key, const char* text, std::size_t length) override {
    if (key == RESULT_BIT && callback_type() == CB_START_MAP) {
      take(new JSON_RPC_Response(nullptr));
      handler_ = new Filter;
    }
    return JSON_RPC_Reader::handle_key_i(key, text, length);
  }
};

TEST_F(FilterTest, ResultsGoToTheFilterThatTheOwnerSet) {
  const auto filter_result = [](const Pieces& pieces) {
    seen.clear();
    Result_Filter_Reader reader;
    reader.mode(JSON_RPC_Reader::FILTER_RESPONSE_MODE);
    reader.open();
    return read_all(reader, pieces) + ' ' + seen;
  };
  EXPECT_EQ(R"(3 {"jsonrpc":"2.0","id":4,"result":null} { a: [ 1 ] } ~)",
            however_cut(R"({"id":4,"result":{"a":[1]},"jsonrpc":"2.0"})", filter_result));
  EXPECT_EQ("refused 0 ", however_cut(R"({"id":4,"result":[1]})", filter_result))
      << "nobody has taken it";
}

}  // namespace
