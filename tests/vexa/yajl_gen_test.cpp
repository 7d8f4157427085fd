#include "vexa/yajl_gen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <stdexcept>

#include "tests/support/nested_arrays.h"
#include "vexa/json_limits.h"
#include "vexa/yajl_forward_handler.h"
#include "vexa/yajl_printer.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

yajl_gen_t* make_gen(YAJL_Printer& printer) {
  yajl_gen_t* const gen = yajl_gen_alloc(nullptr);
  yajl_gen_config(gen, yajl_gen_print_callback, &YAJL_Printer::print_s,
                  static_cast<void*>(&printer));
  return gen;
}

class YajlGenTest : public ::testing::Test {
protected:
  /// Whatever is tried after a failure fails and prints nothing.
  void expect_dead(YAJL_Gen& gen) {
    const std::string before = text_;
    EXPECT_FALSE(gen.ok());
    EXPECT_FALSE(gen.null() || gen.boolean(true) || gen.integer(1) || gen.real(1) ||
                 gen.number("1", 1) || gen.string("s") || gen.literal("s") || gen.map_open() ||
                 gen.map_close() || gen.array_open() || gen.array_close() || gen.value(Value(1)));
    EXPECT_EQ(before, text_);
  }

  std::string text_;
  YAJL_String_Printer printer_{text_};
};

TEST_F(YajlGenTest, TextLeavesAsValidUtf8KeysToo) {
  YAJL_Gen gen(make_gen(printer_));
  Object object;
  object["\xFFk"] = Array{Value::secure("s\x01\"\\/"), "\xC0\xAF\xED\xA0\x80 \xE2\x82"};
  gen << Value(object);
  EXPECT_EQ("{\"\uFFFDk\":[\"s\\u0001\\\"\\\\/\",\"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD \uFFFD\"]}",
            text_);
}

TEST_F(YajlGenTest, StopsForGoodAtTheFirstFailure) {
  const std::pair<std::function<void(YAJL_Gen&)>, yajl_gen_status> cases[] = {
      {[](YAJL_Gen& g) { g.real(std::nan("")); }, yajl_gen_invalid_number},
      {[](YAJL_Gen& g) {
         g << Value(Array{1, HUGE_VAL, 2});
       },
       yajl_gen_invalid_number},
      {[](YAJL_Gen& g) { g << nested_arrays(vexa::max_value_depth + 1); }, yajl_max_depth_exceeded},
      {[](YAJL_Gen& g) {
         for (int i = 0; i < 1000; ++i) g.array_open();
       },
       yajl_max_depth_exceeded},
      {[](YAJL_Gen& g) { g.map_open(), g.integer(1); }, yajl_gen_keys_must_be_strings},
      {[](YAJL_Gen& g) { g.null(), g.null(); }, yajl_gen_generation_complete},
  };
  for (const auto& c : cases) {
    YAJL_Gen gen(make_gen(printer_));
    c.first(gen);
    EXPECT_EQ(c.second, gen.status());
    expect_dead(gen);
  }
  YAJL_Gen none(nullptr);
  expect_dead(none);
}

TEST_F(YajlGenTest, AFailureInsideIsKnownOutsideThoughNotToAnotherGenerator) {
  std::string other_text;
  YAJL_String_Printer other_printer(other_text);
  YAJL_Gen other(make_gen(other_printer));
  YAJL_Gen outer(make_gen(printer_));
  {
    const YAJL_Map_Guard map(outer);
    outer << "k";
    EXPECT_EQ(yajl_max_depth_exceeded, yajl_gen_value(outer.get(), nested_arrays(200)));
    YAJL_Gen late(outer.get(), false);
    expect_dead(late);
    other << Value(1);
  }
  expect_dead(outer);
  EXPECT_EQ("1", other_text);
}

class Failing_Printer : public YAJL_Printer {
  void print(const char* text, std::size_t) override {
    if (*text == '}') throw std::bad_alloc();
  }
};

TEST_F(YajlGenTest, AMapGuardSurvivesAPrinterThatThrows) {
  Failing_Printer printer;
  YAJL_Gen gen(make_gen(printer));
  try {
    const YAJL_Map_Guard map(gen);
    throw std::runtime_error("a generator's");
  } catch (const std::runtime_error&) {
  }
  EXPECT_FALSE(gen.ok());
}

TEST_F(YajlGenTest, TheForwarderNeverLeavesTheDepthOfItsGenerator) {
  YAJL_Forward_Handler out;
  for (int i = 0; i < 1000; ++i) EXPECT_TRUE(out.handle_start_array_i()) << "dropped";
  const YAJL_Gen gen(make_gen(printer_)), fresh(make_gen(printer_));
  out.generate_handle(gen.get());  // a new text, whatever came before
  EXPECT_FALSE(out.handle_end_array_i()) << "nothing is open";
  out.generate_handle(fresh.get());
  std::size_t depth = 0;
  while (depth < 1000 && out.handle_start_map_i() && out.handle_map_key_i("k", 1)) ++depth;
  EXPECT_EQ(vexa::max_value_depth + 2, depth);
  const std::string before = text_;
  EXPECT_FALSE(out.handle_end_map_i() || out.handle_null_i());
  EXPECT_EQ(before, text_);
}

}  // namespace
