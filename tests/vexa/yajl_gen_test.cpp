#include "vexa/yajl_gen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>

#include "vexa/json_dump.h"
#include "vexa/json_generator.h"
#include "vexa/json_limits.h"
#include "vexa/yajl_forward_handler.h"
#include "vexa/yajl_printer.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

/// A generator with what it has printed; the memory behind it belongs to yajl.
class YajlGenTest : public ::testing::Test {
protected:
  YajlGenTest() : gen_(yajl_gen_alloc(nullptr)) {
    yajl_gen_config(gen_, yajl_gen_print_callback, &YAJL_Printer::print_s,
                    static_cast<void*>(&printer_));
  }
  ~YajlGenTest() override { yajl_gen_free(gen_); }

  std::string text_;
  YAJL_String_Printer printer_{text_};
  yajl_gen_t* const gen_;
};

Value nested(std::size_t depth, bool maps) {
  Value value = maps ? Value(Object()) : Value(Array());
  while (--depth > 0) {
    Value outer = maps ? Value(Object()) : Value(Array());
    if (maps) {
      outer.get_obj()["k"] = std::move(value);
    } else {
      outer.get_array().push_back(std::move(value));
    }
    value = std::move(outer);
  }
  return value;
}

/// Whatever is tried after a failure prints nothing and fails.
void expect_dead(YAJL_Gen& gen, const std::string& text) {
  const std::string before = text;
  EXPECT_FALSE(gen.ok());
  EXPECT_FALSE(gen.null() || gen.boolean(true) || gen.integer(1) || gen.real(1) ||
               gen.number("1", 1) || gen.string("s") || gen.literal("s") || gen.map_open() ||
               gen.map_close() || gen.array_open() || gen.array_close() || gen.value(Value(1)));
  gen << "a" << std::string("b") << std::string_view("c") << Value(Object());
  EXPECT_EQ(before, text);
}

TEST_F(YajlGenTest, WritesValuesThatReadBackTheSame) {
  YAJL_Gen gen(gen_, false);
  const Value secret = Value::secure("s\x01\"\\/");
  gen << Value(Array{Value(), true, std::numeric_limits<std::int64_t>::min(),
                     std::numeric_limits<std::uint64_t>::max(), 1.5, secret,
                     Value(Object()), "bad \xC0\xAF\xED\xA0\x80 \xE2\x82"});
  EXPECT_EQ(R"([null,true,-9223372036854775808,18446744073709551615,1.5,"s\u0001\"\\/",{},"bad )"
            "\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD \uFFFD\"]",
            text_);
  EXPECT_TRUE(gen.ok());
}

TEST_F(YajlGenTest, KeysAreRepairedToo) {
  Object object;
  object["\xFF" "k"] = 1;
  EXPECT_EQ(yajl_gen_status_ok, yajl_gen_value(gen_, Value(object)));
  EXPECT_EQ("{\"\uFFFDk\":1}", text_);
}

TEST_F(YajlGenTest, StopsForGoodAtTheFirstFailure) {
  const struct {
    std::function<void(YAJL_Gen&)> fail;
    yajl_gen_status status;
  } cases[] = {
      {[](YAJL_Gen& g) { g.real(std::nan("")); }, yajl_gen_invalid_number},
      {[](YAJL_Gen& g) { g.real(-HUGE_VAL); }, yajl_gen_invalid_number},
      {[](YAJL_Gen& g) { g << Value(Array{1, HUGE_VAL, 2}); }, yajl_gen_invalid_number},
      {[](YAJL_Gen& g) { g << nested(vexa::max_value_depth + 1, true); }, yajl_max_depth_exceeded},
      {[](YAJL_Gen& g) { g << nested(100000, false); }, yajl_max_depth_exceeded},
      {[](YAJL_Gen& g) { for (int i = 0; i < 100000; ++i) g.array_open(); }, yajl_max_depth_exceeded},
      {[](YAJL_Gen& g) { g.map_open(); g.integer(1); }, yajl_gen_keys_must_be_strings},
      {[](YAJL_Gen& g) { g.null(); g.null(); }, yajl_gen_generation_complete},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    text_.clear();
    yajl_gen_t* const raw = yajl_gen_alloc(nullptr);
    yajl_gen_config(raw, yajl_gen_print_callback, &YAJL_Printer::print_s,
                    static_cast<void*>(&printer_));
    YAJL_Gen gen(raw);
    c.fail(gen);
    EXPECT_EQ(c.status, gen.status());
    expect_dead(gen, text_);
  }
  YAJL_Gen none(nullptr);
  expect_dead(none, text_);
}

TEST_F(YajlGenTest, ValuesAsDeepAsAllowedAreWritten) {
  for (const bool maps : {false, true}) {
    EXPECT_FALSE(JSON_Dump(nested(vexa::max_value_depth, maps)).str().empty());
    EXPECT_EQ("", JSON_Dump(nested(vexa::max_value_depth + 1, maps)).str());
  }
}

TEST_F(YajlGenTest, AFailureInsideIsKnownOutsideThoughNotToAnotherGenerator) {
  std::string other_text;
  YAJL_String_Printer other_printer(other_text);
  YAJL_Gen other(yajl_gen_alloc(nullptr));
  yajl_gen_config(other.get(), yajl_gen_print_callback, &YAJL_Printer::print_s,
                  static_cast<void*>(&other_printer));
  YAJL_Gen outer(gen_, false);
  {
    const YAJL_Map_Guard map(outer);
    outer << "k";
    EXPECT_EQ(yajl_max_depth_exceeded, yajl_gen_value(gen_, nested(200, false)));
    YAJL_Gen late(gen_, false);
    expect_dead(late, text_);
    other << Value(1);
  }
  expect_dead(outer, text_);
  EXPECT_TRUE(other.ok());
  EXPECT_EQ("1", other_text);
}

class Failing_Printer : public YAJL_Printer {
public:
  explicit Failing_Printer(std::string last) : last_(std::move(last)) {}
  void print(const char* text, std::size_t length) override {
    if (last_ == std::string(text, length)) throw std::bad_alloc();
  }

private:
  const std::string last_;
};

TEST_F(YajlGenTest, AMapGuardSurvivesAPrinterThatThrows) {
  Failing_Printer printer("}");
  YAJL_Gen gen(yajl_gen_alloc(nullptr));
  yajl_gen_config(gen.get(), yajl_gen_print_callback, &YAJL_Printer::print_s,
                  static_cast<void*>(static_cast<YAJL_Printer*>(&printer)));
  try {
    const YAJL_Map_Guard map(gen);
    gen << "k";
    throw std::runtime_error("generator");
  } catch (const std::runtime_error&) {
  }
  EXPECT_FALSE(gen.ok());
}

class Array_Of_Two : public JSON_Generator {
public:
  explicit Array_Of_Two(double second) : second_(second) {}
  bool generate_i(YAJL_Gen& gen) override {
    gen.array_open();
    gen.integer(1);
    gen.real(second_);
    gen.array_close();
    return true;  // whatever became of it
  }

private:
  const double second_;
};

TEST_F(YajlGenTest, AGeneratorFailsWhenItsWriterDid) {
  Array_Of_Two good(2), bad(HUGE_VAL);
  EXPECT_FALSE(bad.generate(nullptr));
  EXPECT_TRUE(good.generate(gen_));
  EXPECT_EQ("[1,2.0]", text_);
  EXPECT_FALSE(bad.generate(gen_));
}

TEST_F(YajlGenTest, TheForwarderDropsWithoutAGeneratorAndStopsBeforeItsDepth) {
  YAJL_Forward_Handler out;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(out.handle_start_array_i());
  EXPECT_TRUE(out.handle_string_i("dropped", 7));

  out.generate_handle(gen_);  // a new text, whatever came before
  int depth = 0;
  while (depth < 1000 && out.handle_start_array_i()) ++depth;
  EXPECT_EQ(static_cast<int>(vexa::max_value_depth) + 2, depth);
  const std::string before = text_;
  EXPECT_FALSE(out.handle_end_array_i() || out.handle_null_i() || out.handle_boolean_i(true) ||
               out.handle_number_i("1", 1) || out.handle_string_i("s", 1) ||
               out.handle_start_map_i() || out.handle_map_key_i("k", 1) || out.handle_end_map_i());
  EXPECT_EQ(before, text_);
}

TEST_F(YajlGenTest, TheForwarderNeverClosesWhatIsNotOpen) {
  YAJL_Forward_Handler out;
  out.generate_handle(gen_);
  EXPECT_TRUE(out.handle_start_map_i() && out.handle_map_key_i("\xFF", 1) &&
              out.handle_number_i("1e400", 5) && out.handle_end_map_i());
  EXPECT_FALSE(out.handle_end_map_i() || out.handle_end_array_i());
  EXPECT_EQ("{\"\uFFFD\":1e400}", text_);
}

}  // namespace
