#include "tools/json_rpc_call/log_lines.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include "tools/json_rpc_call/output.h"

namespace {

thread_local std::string error;

/// A record's text in one line: line ends become blanks, other control bytes question marks.
std::string one_line(const char* text) {
  std::string line(text);
  while (!line.empty() && (line.back() == '\n' || line.back() == '.')) line.pop_back();
  for (char& c : line) {
    if (c == '\n') c = ' ';
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return line;
}

const char* name_of(unsigned long priority) {
  if (priority >= LM_ERROR) return "error";
  if (priority == LM_WARNING) return "warning";
  return priority == LM_DEBUG || priority == LM_TRACE ? "debug" : "info";
}

}  // namespace

Log_Lines::Log_Lines(bool verbose) : verbose_(verbose) {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  const unsigned long errors = LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY;
  const unsigned long all = errors | LM_WARNING | LM_NOTICE | LM_INFO | LM_DEBUG;
  log->priority_mask(verbose ? all : errors, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::msg_backend(this);
  log->set_flags(ACE_Log_Msg::CUSTOM);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

Log_Lines::~Log_Lines() {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->clr_flags(ACE_Log_Msg::CUSTOM);
  log->set_flags(ACE_Log_Msg::STDERR);
  ACE_Log_Msg::msg_backend(nullptr);
}

const std::string& Log_Lines::first_error() { return error; }
void Log_Lines::forget() { error.clear(); }

ssize_t Log_Lines::log(ACE_Log_Record& record) {
  const std::string line = one_line(record.msg_data());
  if (record.type() >= LM_ERROR && error.empty()) error = line;
  if (verbose_) print_diagnostics(std::string(name_of(record.type())) + ": " + line + '\n');
  return 0;
}
