#include "vexa/thread_helper.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"

namespace {

std::string own_name() {
  char name[64] = "";
  ::pthread_getname_np(::pthread_self(), name, sizeof name);
  return name;
}

struct ThreadNameTest : ::testing::Test {
  ~ThreadNameTest() override { set_thread_name(before.c_str(), ::pthread_self()); }
  const std::string before = own_name();
  Log_Capture log;
};

TEST_F(ThreadNameTest, FifteenCharactersFitAndMoreAreCut) {
  set_thread_name("123456789012345", ::pthread_self());
  EXPECT_EQ("123456789012345", own_name());
  EXPECT_EQ(0u, log.size());

  set_thread_name("abcdefghijklmnopqrst", ::pthread_self());
  EXPECT_EQ("abcdefghijklmno", own_name());
  EXPECT_TRUE(log.contains(
      LM_WARNING, "Thread name(abcdefghijklmnopqrst) is too long, truncate to 15 chars.\n"));
  EXPECT_EQ(1u, log.size());
}

TEST_F(ThreadNameTest, OtherFailuresLeaveTheThreadUnnamed) {
  {
    Failing_Thread_Naming fails(EACCES);
    set_thread_name("new", ::pthread_self());
  }
  EXPECT_EQ(before, own_name());
  EXPECT_TRUE(log.contains(LM_ERROR, "Failed to set thread name(new): 13\n"));
  EXPECT_EQ(1u, log.size());

  Failing_Thread_Naming fails(ERANGE);  // the cut name is refused too
  set_thread_name("abcdefghijklmnopqrst", ::pthread_self());
  EXPECT_TRUE(log.contains(LM_ERROR, "Failed to set thread name(abcdefghijklmnopqrst): 34\n"));
}

}  // namespace
