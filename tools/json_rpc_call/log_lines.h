#pragma once

#include <ace/Log_Msg_Backend.h>

#include <string>

/// Gets the library's log records for the whole process while it lives. They go to standard error
/// when asked for, and nowhere otherwise: what fails is told in a line of our own. Of the errors
/// the first is kept, for where the library knows better why. ACE serialises the calls of log().
class Log_Lines final : public ACE_Log_Msg_Backend {
public:
  explicit Log_Lines(bool verbose);
  ~Log_Lines() override;

  /// The text of this thread's first error since the last forget(), in one line; "" when there was
  /// none.
  static const std::string& first_error();
  static void forget();

  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override;

private:
  const bool verbose_;
};
