#include "vexa/json_base_conf.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

/// Keeps each record as "uri|dll|init|params "; one whose uri is "bad" fails.
class Reader : public JSON_Base_Conf {
public:
  Reader() : JSON_Base_Conf("method", 6) {}
  std::string records;

private:
  bool handle_record() override {
    records += uri() + "|" + dll() + "|" + init() + "|" + params() + " ";
    return uri() != "bad";
  }
};

/// What reading a file of that text logs (without its name) must be `errors`.
void expect(const std::string& text, const std::string& records, size_t failures,
            const std::vector<std::string>& errors) {
  SCOPED_TRACE(text.substr(0, 200));
  Temporary_File file(text);
  Log_Capture log;
  Reader reader;
  EXPECT_EQ(failures, load_json_config(file.path().c_str(), reader));
  EXPECT_EQ(records, reader.records);
  std::vector<std::string> logged;
  for (const std::string& line : log.texts(LM_ERROR)) {
    EXPECT_EQ(file.path(), line.substr(0, file.path().size()));
    logged.push_back(line.substr(file.path().size()));
  }
  EXPECT_EQ(errors, logged);
}

TEST(JSONBaseConfTest, BadRecordsAreSkippedWithTheirLine) {
  expect(R"([{"method": "m", "dll": "l", "init": "i", "params": "p \"q\""}])", "m|l|i|p \"q\" ", 0,
         {});
  expect(R"([{"params": "p", "method": "bad"}, {"method": ""}])", "bad|||p ||| ", 1, {});
  const char* const cases[][2] = {
      {"7", "it is not an object"},
      {R"([{"method": "x"}, [1]])", "it is not an object"},
      {"{}", "it has no member \"method\""},
      {R"({"method": "x", "dl\u006c ": "y", "z": 1})", "its member \"dll \" is unknown"},
      {R"({"method": 1})", "its member \"method\" is not a text"},
      {R"({"method": "x", "init": {"method": "y"}})", "its member \"init\" is not a text"},
      {R"({"params": ["x", ["y"]], "method": "x"})", "its member \"params\" is not a text"},
      {R"({"method": "x", "method": "y"})", "its member \"method\" is given twice"},
  };
  for (const auto& c : cases) {
    expect(std::string("[\n\n") + c[0] + ",\n{\"method\": \"good\"}]", "good||| ", 1,
           {std::string(":3: Skipped a bad record: ") + c[1] + ".\n"});
  }
}

TEST(JSONBaseConfTest, AFileThatCannotBeParsedKeepsWhatCameBefore) {
  const std::string failed = ": Failed to parse configuration: ";
  expect("", "", 1, {":1:0" + failed + "parse error: premature EOF\n"});
  expect("\n{}", "", 1, {":2:1" + failed + "the file is not an array of records\n"});
  const auto nested = [](size_t levels) {
    return "{\"dll\": " + std::string(levels, '[') + std::string(levels, ']') + "}]";
  };
  const std::string not_text = ":2: Skipped a bad record: its member \"dll\" is not a text.\n";
  const struct {
    std::string text;
    std::vector<std::string> errors;
  } cases[] = {
      {" {\"method\": \"n\", }",
       {":2:18" + failed + "parse error: invalid object key (must be a string)\n"}},
      // 124 containers, the list and the record included, can be open, and no more.
      {nested(122), {not_text}},
      {nested(123), {not_text, ":2:131" + failed + "values are nested too deep\n"}},
  };
  for (const auto& c : cases) {
    expect("[{\"method\": \"m\"},\n" + c.text, "m||| ", c.errors.size(), c.errors);
  }
}

TEST(JSONBaseConfTest, WhereAPieceEndsMakesNoDifference) {
  const std::string text =
      "/* a */ [ // b\n{\"method\": \"m\\u00e9\", \"dll\": \"l\" /* c */ },\n"
      "{\"x\": 1},\n{\"method\": \"n\"}] // d\n?";
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    expect(std::string(16 * 1024 - cut, ' ') + text, "m\xc3\xa9|l|| n||| ", 2,
           {":3: Skipped a bad record: its member \"x\" is unknown.\n",
            ":5:1: Failed to parse configuration: parse error: trailing garbage\n"});
  }
}

}  // namespace
