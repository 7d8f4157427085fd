#pragma once

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <utility>

#include "tests/support/log_capture.h"
#include "vexa/exception_text.h"

/// Allocations with operator new that fail on purpose, on the thread that runs an operation under
/// it; other threads, and malloc(), are left alone.
class Failing_Memory {
public:
  enum Kind { ONE, THAT_AND_ALL_AFTER };

  /// The first `spared` allocations succeed.
  Failing_Memory(Kind kind, long spared) : kind_(kind), left_(spared) {}

  /// Runs the operation; an exception that it lets out fails the test.
  template <typename Operation>
  void operator()(Operation operation) {
    try {
      const Armed armed(*this);
      operation();
    } catch (...) {
      ADD_FAILURE() << "an exception got out: " << vexa::exception_text();
    }
  }

  /// Whether an allocation has failed.
  bool hit() const { return hit_; }

  /// The next allocation of this thread fails, or all from now on.
  static void starve_thread(Kind kind);

  /// Allocations of this thread succeed while it lives: what the test itself does.
  class Pause {
  public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

  private:
    Failing_Memory* const paused_;
  };

  /// Whether the next allocation is to fail; for operator new.
  static bool fails();
  /// Blocks of operator new that all threads have not given back.
  static long live_blocks();

private:
  class Armed {
  public:
    explicit Armed(Failing_Memory& memory);
    ~Armed();
  };

  const Kind kind_;
  long left_;
  bool hit_ = false;
};

/// Swallows what is logged, after it has been put together; to keep it would cost memory.
class Quiet_Log final : public Log_Capture {
  ssize_t log(ACE_Log_Record&) override { return 0; }
};

/// Whether a trial gives back all that it allocated. One that starts threads does not: ACE keeps
/// their descriptors.
enum Balance { BALANCED, BALANCE_IGNORED };

/// Calls trial(memory) with the first allocation failing of what it runs under `memory`, then with
/// the second, and so on until none is left to fail; and then with all failing from the first on,
/// from the second on, and so on.
template <typename Trial>
void at_every_allocation(Trial trial, Balance balance = BALANCED) {
  const Quiet_Log quiet;
  {
    Failing_Memory plenty(Failing_Memory::ONE, LONG_MAX);
    trial(plenty);  // what is kept for good is kept from here on
  }
  for (const auto kind : {Failing_Memory::ONE, Failing_Memory::THAT_AND_ALL_AFTER}) {
    bool hit = true;
    for (long spared = 0; hit && !::testing::Test::HasFailure(); ++spared) {
      char trace[64];
      std::snprintf(trace, sizeof trace, "allocation %ld fails%s", spared + 1,
                    kind == Failing_Memory::ONE ? "" : ", and all after it");
      SCOPED_TRACE(trace);
      const long before = Failing_Memory::live_blocks();
      Failing_Memory memory(kind, spared);
      trial(memory);
      if (balance == BALANCED && !::testing::Test::HasFailure()) {
        EXPECT_EQ(before, Failing_Memory::live_blocks());
      }
      hit = memory.hit();
    }
  }
}
