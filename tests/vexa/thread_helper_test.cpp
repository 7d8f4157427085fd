#include "vexa/thread_helper.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include "tests/support/log_capture.h"
#include "tests/support/thread_faults.h"

namespace {

std::string own_name() {
  char name[64] = "";
  ::pthread_getname_np(::pthread_self(), name, sizeof name);
  return name;
}

TEST(ThreadNameTest, LongNamesAreCutAndFailuresLogged) {
  const std::string before = own_name();
  const std::string cut = "Thread name(abcdefghijklmnopqrst) is too long, truncate to 15 chars.\n";
  Log_Capture log;
  for (const int error : {EACCES, ERANGE}) {
    Failing_Thread_Naming fails(error);
    set_thread_name("abcdefghijklmnopqrst", ::pthread_self());
    EXPECT_EQ(before, own_name());
  }
  set_thread_name("123456789012345", ::pthread_self());
  EXPECT_EQ("123456789012345", own_name());
  set_thread_name("abcdefghijklmnopqrst", ::pthread_self());
  EXPECT_EQ("abcdefghijklmno", own_name());
  EXPECT_EQ((std::vector<std::string>{cut, cut}), log.texts(LM_WARNING));
  EXPECT_EQ((std::vector<std::string>{"Failed to set thread name(abcdefghijklmnopqrst): 13\n",
                                      "Failed to set thread name(abcdefghijklmnopqrst): 34\n"}),
            log.texts(LM_ERROR));
  set_thread_name(before.c_str(), ::pthread_self());
}

}  // namespace
