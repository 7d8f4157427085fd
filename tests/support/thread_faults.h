#pragma once

/// How thread calls of this process fail. The operations are interposed in the whole process, the
/// libraries included, and work as ever while nothing is set.

/// While it lives, pthread_create fails with EAGAIN after the first `allowed` calls.
class Failing_Thread_Creation {
public:
  explicit Failing_Thread_Creation(int allowed);
  ~Failing_Thread_Creation();
  Failing_Thread_Creation(const Failing_Thread_Creation&) = delete;
  Failing_Thread_Creation& operator=(const Failing_Thread_Creation&) = delete;
};

/// While it lives, pthread_setname_np gives `error` for any name.
class Failing_Thread_Naming {
public:
  explicit Failing_Thread_Naming(int error);
  ~Failing_Thread_Naming();
  Failing_Thread_Naming(const Failing_Thread_Naming&) = delete;
  Failing_Thread_Naming& operator=(const Failing_Thread_Naming&) = delete;
};
