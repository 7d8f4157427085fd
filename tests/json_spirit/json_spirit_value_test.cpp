#include "json_spirit/json_spirit_value.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <new>
#include <random>
#include <stdexcept>

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using json_spirit::value_hash;
using json_spirit::value_lesser;

namespace {

std::atomic<long> allocations{0};
std::atomic<long> live_blocks{0};
std::atomic<long> allocations_left{LONG_MAX};
std::atomic<const char*> secret{nullptr};
std::atomic<long> freed_with_secret{0};

}  // namespace

void* operator new(std::size_t size) {
  if (allocations_left.fetch_sub(1) <= 0) throw std::bad_alloc();
  void* const block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  ++allocations;
  ++live_blocks;
  return block;
}

// std::stable_sort() takes its room so.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  const char* const text = secret;
  if (text != nullptr && memmem(block, malloc_usable_size(block), text, strlen(text)) != nullptr) {
    ++freed_with_secret;
  }
  --live_blocks;
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }

namespace {

static_assert(sizeof(Value) == 40);
static_assert(!std::is_convertible_v<void*, Value> && !std::is_convertible_v<int*, Value> &&
                  !std::is_convertible_v<void (*)(), Value>,
              "a pointer must not become a bool");

void run_on_small_stack(std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  const auto run = [](void* p) { return (*static_cast<std::function<void()>*>(p))(), p; };
  ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &body));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

template <typename... Elements>
Value array_of(Elements&&... elements) {
  Array array;
  (array.push_back(Value(std::forward<Elements>(elements))), ...);
  return array;
}

Value object_of(const char* key, Value value) {
  Object object;
  object.emplace(key, std::move(value));
  return object;
}

// One level around `inner`.
struct Shape {
  const char* name;
  int levels;
  Value (*wrap)(Value&& inner, int level);
};

const Shape shapes[] = {
    {"arrays", 1000000, [](Value&& v, int) { return array_of(std::move(v)); }},
    {"objects", 200000, [](Value&& v, int) { return object_of("k", std::move(v)); }},
    {"deep on the left", 200000, [](Value&& v, int) { return array_of(std::move(v), 1); }},
    {"deep on the right", 200000, [](Value&& v, int) { return array_of(1, std::move(v)); }},
    {"containers on both sides", 50000,
     [](Value&& v, int) {
       return array_of(array_of(1, "text beyond the fifteen bytes"), array_of(array_of()),
                       std::move(v), object_of("a", array_of(array_of(2))), Object());
     }},
    {"wide at times", 50000,
     [](Value&& v, int n) {
       Value level = array_of(array_of(array_of(n)), std::move(v));
       for (int i = 0; n % 1000 == 0 && i < 300; ++i) level.get_array().push_back(array_of(i, "x"));
       return level;
     }},
};

Value build(const Shape& shape, Value leaf) {
  for (int level = 0; level < shape.levels; ++level) leaf = shape.wrap(std::move(leaf), level);
  return leaf;
}

TEST(DeepValueTest, BuildCopyCompareAndDestroyFitASmallStack) {
  for (const Shape& shape : shapes) {
    SCOPED_TRACE(shape.name);
    const long before = live_blocks;
    run_on_small_stack([&] {
      Value value = build(shape, 1);
      {
        const Value copy(value);
        EXPECT_TRUE(value == copy);
        EXPECT_FALSE(value_lesser()(value, copy) || value_lesser()(copy, value));
        value_hash()(copy);
      }
      const Value other = build(shape, 2);
      EXPECT_TRUE(value != other);
      EXPECT_TRUE(value_lesser()(value, other));
      EXPECT_FALSE(value_lesser()(other, value));
      const long allocated = allocations;
      value = Value();
      EXPECT_EQ(allocated, allocations) << "destroying a value must not allocate";
    });
    EXPECT_EQ(before, live_blocks);
  }
}

TEST(ValueTest, ReadsAsWhatItWasMadeOfAndRefusesTheRest) {
  EXPECT_FALSE(Value(5L).is_uint64());
  EXPECT_EQ(18446744073709551616.0, Value(UINT64_MAX).get_real());
  EXPECT_TRUE(Value(static_cast<const char*>(nullptr)).is_null());
  EXPECT_EQ(std::string("a\0b", 3), Value(std::string_view("a\0b", 3)).get_str());

  const Value values[] = {Object(), Array(), "", Value::secure(""), true, 1, 1.5, Value()};
  for (int type = 0; type < 8; ++type) {
    const Value& value = values[type];
    EXPECT_EQ(type, value.type());
    const std::pair<bool, std::function<void()>> reads[] = {
        {type == 0, [&] { value.get_obj(); }},
        {type == 1, [&] { value.get_array(); }},
        {type == 2 || type == 3, [&] { value.get_str(); }},
        {type == 4, [&] { value.get_bool(); }},
        {type == 5, [&] { value.get_int(); }},
        {type == 5 || type == 6, [&] { value.get_real(); }}};
    for (const auto& [good, read] : reads) {
      std::string error;
      try {
        read();
      } catch (const std::runtime_error& e) {
        error = e.what();
      }
      EXPECT_EQ(good, error.empty()) << type;
      if (type == 7) {
        EXPECT_EQ(0u, error.find("value type is null_type not ")) << error;
      }
    }
  }
}

TEST(ValueTest, AMoveLeavesNullAndACopyLeavesItsSource) {
  const Value samples = array_of(object_of("a", 1), array_of(1, "x"), "short", std::string(40, 'x'),
                                 Value::secure("pw"), true, 1, UINT64_MAX, 2.5, Value());
  for (const Value& sample : samples.get_array()) {
    for (const Value& previous : samples.get_array()) {
      SCOPED_TRACE(::testing::Message() << sample.type() << " over " << previous.type());
      Value source(sample), target(previous);
      target = source;
      EXPECT_TRUE(target == sample && source == sample && target.type() == sample.type());
      target = previous;
      target = std::move(source);
      EXPECT_TRUE(target == sample && source.is_null() && target.type() == sample.type());
      EXPECT_EQ(sample.is_uint64(), target.is_uint64());
      Value& same = target;
      target = same;
      target = std::move(same);
      EXPECT_TRUE(target == sample);
      target = previous;
      target = std::string_view("made in place of whatever there was");
      EXPECT_EQ("made in place of whatever there was", target.get_str());
      target = std::string_view(target.get_str()).substr(5);
      EXPECT_TRUE(target == "in place of whatever there was" && !target.is_uint64());
    }
  }
}

TEST(ValueTest, APartOfAValueCanTakeItsPlace) {
  const Value part = array_of("text beyond the fifteen bytes", array_of(1));
  for (const bool move : {false, true}) {
    Value object = object_of("x", part), array = array_of(0, part);
    Object members = object_of("x", object).get_obj();
    if (move) {
      object = std::move(object.get_obj()["x"]);
      array = std::move(array.get_array()[1]);
      members = std::move(members["x"].get_obj());
    } else {
      object = object.get_obj()["x"];
      array = array.get_array()[1];
      members = members["x"].get_obj();
    }
    EXPECT_TRUE(object == part && array == part && members["x"] == part);
    array.get_array()[1] = array;  // and the other way round
    EXPECT_TRUE(array == array_of("text beyond the fifteen bytes", part));
  }
}

TEST(ValueTest, ACopyThatRunsOutOfMemoryLeavesNothingBehind) {
  const Value source = array_of(object_of("a", array_of(std::string(40, 'x'), Value::secure("p"))),
                                build({"", 300, shapes[5].wrap}, "beyond what recursion copies"));
  const long before = live_blocks;
  long allowed = 0;
  for (bool copied = false; !copied; ++allowed) {
    allocations_left = allowed;
    try {
      const Value copy(source);
      allocations_left = LONG_MAX;
      EXPECT_TRUE(copy == source);
      copied = true;
    } catch (const std::bad_alloc&) {
      allocations_left = LONG_MAX;
    }
    ASSERT_EQ(before, live_blocks);
  }
  EXPECT_GT(allowed, 300);
}

TEST(ValueOrderTest, IsAStrictWeakOrderThatAgreesWithEqualityAndHash) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), infinity = HUGE_VAL;
  const Value ordered = array_of(
      Object(), object_of("a", 1), object_of("a", 2), object_of("b", 1), Array(),
      array_of(Object()), array_of(array_of(2)), array_of(1), array_of(2), array_of(0.0),
      array_of(nan), array_of(array_of(1), 2), array_of(1, 1), "", "7", "a", std::string("a\0", 2),
      "\xff", false, true, std::int64_t{INT64_MIN}, -1, 0, 7, std::int64_t{INT64_MAX},
      std::uint64_t{INT64_MAX} + 1, UINT64_MAX, -infinity, 0.0, 7.0, infinity, nan, Value());
  const Value twins = array_of(object_of("a", 1u), array_of(-0.0), array_of(-nan),
                               array_of(array_of(1u), 2ull), Value::secure(""), Value::secure("7"),
                               0u, 7ull, std::uint64_t{INT64_MAX}, -0.0, -nan);

  const Array& values = ordered.get_array();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) {
      SCOPED_TRACE(::testing::Message() << i << " and " << j);
      EXPECT_EQ(i < j, value_lesser()(values[i], values[j]));
      EXPECT_EQ(i == j, values[i] == values[j]);
      EXPECT_EQ(i != j, values[i] != Value(values[j]));
    }
  }
  // Each twin stands to all others as the one value does that it equals: so every triple is in
  // order.
  for (const Value& twin : twins.get_array()) {
    const auto same = std::find(values.begin(), values.end(), twin);
    ASSERT_NE(values.end(), same) << &twin - &twins.get_array()[0];
    EXPECT_EQ(value_hash()(*same), value_hash()(twin));
    for (const Value& value : values) {
      EXPECT_EQ(value_lesser()(*same, value), value_lesser()(twin, value));
      EXPECT_EQ(value_lesser()(value, *same), value_lesser()(value, twin));
      EXPECT_EQ(*same == value, twin == value);
    }
  }
  EXPECT_NE(value_hash()("7"), value_hash()("8"));
  EXPECT_NE(value_hash()(7), value_hash()(8));
}

std::string random_key(std::mt19937& random, int keys) {
  const int number = static_cast<int>(random() % keys);
  if (number < 3) return std::string("\xff", number % 2) + std::string(number / 2, '\0');
  std::string key = (number % 2 ? "k" : "") + std::to_string(number);
  if (key.back() == '3') key += " is longer than fifteen bytes";
  if (key.back() == '7') key = std::string("member_") + static_cast<char>(2 * number) + key;
  if (key.back() == '8') key = "a long name: " + key;
  return key;
}

void expect_same(const Object& object, const std::map<std::string, int>& model) {
  ASSERT_EQ(model.size(), object.size());
  auto member = object.begin();
  for (const auto& [key, number] : model) {
    ASSERT_EQ(key, member->first);
    ASSERT_EQ(number, member->second.get_int());
    ++member;
  }
  ASSERT_EQ(object.end(), member);
}

TEST(ObjectTest, BehavesAsAMap) {
  std::mt19937 random(7);
  // Small; around the size from which the members themselves are sorted; and above it.
  for (const int keys : {8, 27, 60}) {
    Object object;
    std::map<std::string, int> model;
    for (int step = 0; step < 20000; ++step) {
      const std::string key = random_key(random, keys);
      const auto bound = object.lower_bound(key);
      ASSERT_EQ(std::distance(model.begin(), model.lower_bound(key)),
                std::distance(object.begin(), bound));
      const auto found = object.find(key);
      ASSERT_EQ(model.count(key), object.count(key));
      ASSERT_EQ(model.count(key) == 0, found == object.end());
      switch (random() % 5) {
        case 0:
          object[key] = model[key] = step;
          break;
        case 1: {
          const auto inserted = object.insert({key, step});
          ASSERT_EQ(model.insert({key, step}).second, inserted.second);
          ASSERT_EQ(key, inserted.first->first);
          break;
        }
        case 2:
          ASSERT_EQ(model.emplace(key, step).second, object.emplace(key, step).second);
          break;
        case 3:
          ASSERT_EQ(model.erase(key), object.erase(key));
          break;
        default:
          if (found == object.end()) {
            EXPECT_THROW(object.at(key), std::out_of_range);
          } else {
            const auto behind = model.erase(model.find(key));
            const auto next = object.erase(found);
            ASSERT_EQ(std::distance(behind, model.end()), std::distance(next, object.end()));
          }
      }
      expect_same(object, model);
      if (HasFatalFailure()) return;
      if (step % 32 != 0) continue;
      Object in_order;  // the same members, laid otherwise
      for (const auto& [name, number] : model) in_order[name] = number;
      ASSERT_TRUE(object == in_order && Value(object) == Value(in_order));
      ASSERT_FALSE(value_lesser()(object, in_order) || value_lesser()(in_order, object));
      Object copy = step % 64 ? object : Value(object).get_obj();
      object = std::move(in_order);
      object.swap(copy);
      for (auto at = copy.begin(); at != copy.end();) {
        at = at->second.get_int() % 2 ? copy.erase(at) : std::next(at);
      }
      for (auto at = copy.end(); at != copy.begin();) {
        --at;
        ASSERT_EQ(0, at->second.get_int() % 2);
      }
    }
  }
}

TEST(ObjectTest, SettlingSortsAndLetsTheLastOfAKeyStay) {
  std::mt19937 random(11);
  for (int round = 0; round < 3000; ++round) {
    const int size = round % 90, keys = 1 + random() % 120;
    Object object;
    std::map<std::string, int> model;
    for (int i = 0; i < size; ++i) {
      const std::string key = random_key(random, keys);
      object.append(std::string_view(key)) = i;
      model[key] = i;
      if (i == size / 3) object.settle();
    }
    allocations_left = round % 2 ? 0 : LONG_MAX;
    object.settle();
    allocations_left = LONG_MAX;
    expect_same(object, model);
    if (HasFatalFailure()) return;
  }
}

bool shows(const Value& value, const char* text) {
  return memmem(&value, sizeof value, text, strlen(text)) != nullptr;
}

TEST(SecureTextTest, IsGoneFromMemoryHoweverItWent) {
  for (const char* text : {"hunter2 short", "hunter2 in a text far beyond fifteen bytes"}) {
    SCOPED_TRACE(text);
    freed_with_secret = 0;
    secret = text;
    {
      std::string source(text);
      Value value = Value::secure(std::move(source));
      EXPECT_EQ(nullptr, memmem(&source, sizeof source, text, strlen(text)));
      EXPECT_EQ(text, value.get_str());
      Value copy(value), assigned;
      assigned = copy;
      EXPECT_EQ(json_spirit::secure_str_type, assigned.type());
      Value moved(std::move(value));
      EXPECT_FALSE(shows(value, text));
      value = std::move(moved);
      EXPECT_FALSE(shows(moved, text));
      copy = 5;
      EXPECT_FALSE(shows(copy, text));
      Array grown;
      for (int i = 0; i < 20; ++i) grown.push_back(value);
      grown.erase(grown.begin());
      Object object;
      for (const char* key : {"e", "d", "c", "b", "a"}) object.append(key) = assigned;
      object.settle();
      object.erase("b");
      EXPECT_EQ(text, object["a"].get_str());
      alignas(Value) unsigned char storage[sizeof(Value)];
      (new (storage) Value(value))->~Value();
      EXPECT_EQ(nullptr, memmem(storage, sizeof storage, text, strlen(text)));
    }
    secret = nullptr;
    EXPECT_EQ(0, freed_with_secret);
  }
}

}  // namespace
