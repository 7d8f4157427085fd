#include "vexa/object_creator_t.h"

#include <gtest/gtest.h>

namespace {

struct Creator : Object_Creator_T<int> {
  using Object_Creator_T<int>::argc_;
  using Object_Creator_T<int>::argv_;
  int* create() override { return nullptr; }
  void destroy(int*) override {}
};

TEST(ObjectCreatorTest, ArgumentsAreCopiedAndReplaced) {
  Creator creator;
  char a[] = "a";
  char b[] = "b";
  char* both[] = {a, b};
  ASSERT_EQ(0, creator.init(2, both));
  a[0] = 'x';
  both[1] = nullptr;
  ASSERT_EQ(2, creator.argc_);
  EXPECT_STREQ("a", creator.argv_[0]);
  EXPECT_STREQ("b", creator.argv_[1]);
}

}  // namespace
