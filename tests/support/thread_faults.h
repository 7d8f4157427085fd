#pragma once

/// While it lives, pthread_create fails with EAGAIN after the first `allowed` calls of this
/// process, the libraries included. It is interposed, and works as ever while there is none of
/// these.
class Failing_Thread_Creation {
public:
  explicit Failing_Thread_Creation(int allowed);
  ~Failing_Thread_Creation();
  Failing_Thread_Creation(const Failing_Thread_Creation&) = delete;
  Failing_Thread_Creation& operator=(const Failing_Thread_Creation&) = delete;
};
