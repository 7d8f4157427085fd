#include "vexa/json_base_conf.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/temporary_file.h"

namespace {

/// Keeps each record as "uri|dll|init|params"; one whose uri is "bad" fails.
class Reader : public JSON_Base_Conf {
public:
  Reader() : JSON_Base_Conf("method", 6) {}
  std::vector<std::string> records;

private:
  bool handle_record() override {
    records.push_back(uri() + "|" + dll() + "|" + init() + "|" + params());
    return uri() != "bad";
  }
};

typedef std::vector<std::string> Texts;

struct Case {
  std::string text;
  Texts records;
  size_t failures;
  Texts errors;  // each behind the path of the file
};

void expect(const Case& c) {
  SCOPED_TRACE(c.text.substr(0, 200));
  Temporary_File file(c.text);
  Log_Capture log;
  Reader reader;
  EXPECT_EQ(c.failures, load_json_config(file.path().c_str(), reader));
  EXPECT_EQ(c.records, reader.records);
  Texts errors;
  for (const std::string& error : c.errors) errors.push_back(file.path() + error);
  EXPECT_EQ(errors, log.texts(LM_ERROR));
}

std::string nested(size_t levels) { return std::string(levels, '[') + std::string(levels, ']'); }

TEST(JSONBaseConfTest, RecordsAreReadOneByOne) {
  const Case cases[] = {
      {"[]", {}, 0, {}},
      {"// head\n[ /* none */ ] // tail", {}, 0, {}},
      {R"([{"method": "m", "dll": "l", "init": "i", "params": "p \"q\""}])",
       {"m|l|i|p \"q\""},
       0,
       {}},
      {R"([{"params": "p", "method": "a"}, {"method": "b", "dll": "l"}])",
       {"a|||p", "b|l||"},
       0,
       {}},
      {R"([{"method": "bad"}, {"method": "good"}])", {"bad|||", "good|||"}, 1, {}},
      {R"([{"method": ""}])", {"|||"}, 0, {}},
  };
  for (const Case& c : cases) expect(c);
}

TEST(JSONBaseConfTest, BadRecordsAreSkippedWithTheirLine) {
  const std::string good = R"({"method": "good"}])";
  const struct {
    const char* record;
    const char* why;
  } cases[] = {
      {"7", "it is not an object"},
      {R"([{"method": "x"}, [1]])", "it is not an object"},
      {"{}", "it has no member \"method\""},
      {R"({"uri": "x"})", "its member \"uri\" is unknown"},
      {R"({"method": "x", "dl\u006c ": "y", "z": 1})", "its member \"dll \" is unknown"},
      {R"({"method": 1})", "its member \"method\" is not a text"},
      {R"({"method": "x", "dll": null})", "its member \"dll\" is not a text"},
      {R"({"method": "x", "init": {"method": "y"}})", "its member \"init\" is not a text"},
      {R"({"params": ["x", ["y"]], "method": "x"})", "its member \"params\" is not a text"},
      {R"({"method": "x", "method": "y"})", "its member \"method\" is given twice"},
  };
  for (const auto& c : cases) {
    expect({std::string("[\n\n") + c.record + ",\n" + good,
            {"good|||"},
            1,
            {std::string(":3: Skipped a bad record: ") + c.why + ".\n"}});
  }
}

TEST(JSONBaseConfTest, AFileThatCannotBeParsedKeepsWhatCameBefore) {
  const std::string first = "[{\"method\": \"m\"},\n";
  const std::string failed = ": Failed to parse configuration: ";
  const Case cases[] = {
      {"", {}, 1, {":1:0" + failed + "parse error: premature EOF\n"}},
      {first, {"m|||"}, 1, {":2:0" + failed + "parse error: premature EOF\n"}},
      {first + " {\"method\": \"n\", }",
       {"m|||"},
       1,
       {":2:18" + failed + "parse error: invalid object key (must be a string)\n"}},
      {first + " ?",
       {"m|||"},
       1,
       {":2:2" + failed + "lexical error: invalid char in json text.\n"}},
      {first + "{}] x",
       {"m|||"},
       2,
       {":2: Skipped a bad record: it has no member \"method\".\n",
        ":2:5" + failed + "parse error: trailing garbage\n"}},
      {"\n{}", {}, 1, {":2:1" + failed + "the file is not an array of records\n"}},
      {"true", {}, 1, {":1:4" + failed + "the file is not an array of records\n"}},
      // 124 containers, the list and the record included, can be open, and no more.
      {first + "{\"dll\": " + nested(122) + "}]",
       {"m|||"},
       1,
       {":2: Skipped a bad record: its member \"dll\" is not a text.\n"}},
      {first + "{\"x\": " + nested(100000) + "}]",
       {"m|||"},
       2,
       {":2: Skipped a bad record: its member \"x\" is unknown.\n",
        ":2:129" + failed + "values are nested too deep\n"}},
  };
  for (const Case& c : cases) expect(c);
}

TEST(JSONBaseConfTest, WhereAPieceEndsMakesNoDifference) {
  const std::string text =
      "/* a */ [ // b\n{\"method\": \"m\\u00e9\", \"dll\": \"l\" /* c */ },\n"
      "{\"x\": 1},\n{\"method\": \"n\"}] // d\n?";
  const size_t piece = 16 * 1024;
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    SCOPED_TRACE(cut);
    expect({std::string(piece - cut, ' ') + text,
            {"m\xc3\xa9|l||", "n|||"},
            2,
            {":3: Skipped a bad record: its member \"x\" is unknown.\n",
             ":5:1: Failed to parse configuration: parse error: trailing garbage\n"}});
  }
}

}  // namespace
