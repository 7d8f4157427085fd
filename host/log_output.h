#pragma once

#include <ace/Log_Msg_Backend.h>

#include <atomic>
#include <string>

/// Writes ACE's log records to standard error, one event a line: time, priority, channel, text.
/// What a peer could have put into a text cannot forge a line: control bytes are escaped, and the
/// further lines of a text are indented. ACE serialises the calls.
class Log_Output final : public ACE_Log_Msg_Backend {
public:
  /// Installs itself for the whole process while it lives; records below `level` are dropped before
  /// they are composed. `level` is one of debug, info, warning, error.
  explicit Log_Output(const std::string& level);
  ~Log_Output() override;

  /// Records of priority error and above so far.
  std::size_t errors() const { return errors_; }

  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override;

private:
  std::atomic<std::size_t> errors_{0};
};
