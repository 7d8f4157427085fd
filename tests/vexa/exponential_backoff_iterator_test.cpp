#include "vexa/exponential_backoff_iterator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using ::testing::ElementsAre;
typedef Exponential_Backoff_Iterator Backoff;

TEST(ExponentialBackoffIteratorTest, WaitsDoubleFromTheSlotTimeToTheCapAndEnd) {
  const auto waits = [](Backoff it) { return std::vector<unsigned>(it, Backoff()); };
  EXPECT_THAT(waits(Backoff(1, 8, 60, false)), ElementsAre(1, 2, 4, 8, 16, 32, 60, 60));
  EXPECT_THAT(waits(Backoff(5, 2, 3, true)), ElementsAre(3, 3));
  EXPECT_THAT(waits(Backoff(0, 2, 0, true)), ElementsAre(1, 1)) << "never a busy loop";
  EXPECT_THAT(waits(Backoff(3000000000, 2, ~0U, false)), ElementsAre(3000000000, ~0U));
  EXPECT_THAT(waits(Backoff(1, 0, 60, true)), ElementsAre());
}
