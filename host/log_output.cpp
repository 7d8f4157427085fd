#include "host/log_output.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "transport/log_context.h"

namespace {

const char* name_of(unsigned long priority) {
  switch (priority) {
    case LM_TRACE:
    case LM_DEBUG:
      return "debug";
    case LM_INFO:
    case LM_NOTICE:
    case LM_STARTUP:
    case LM_SHUTDOWN:
      return "info";
    case LM_WARNING:
      return "warning";
    default:
      return "error";
  }
}

unsigned long mask_of(const std::string& level) {
  const unsigned long error = LM_ERROR | LM_CRITICAL | LM_ALERT | LM_EMERGENCY;
  const unsigned long warning = error | LM_WARNING;
  const unsigned long info = warning | LM_INFO | LM_NOTICE | LM_STARTUP | LM_SHUTDOWN;
  if (level == "error") return error;
  if (level == "warning") return warning;
  return level == "debug" ? info | LM_DEBUG : info;
}

std::string time_text(const ACE_Time_Value& stamp) {
  const time_t seconds = stamp.sec();
  tm parts;
  gmtime_r(&seconds, &parts);
  char text[48];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ",
                static_cast<int>(stamp.usec() / 1000));
  return text;
}

void append_escaped(std::string& line, const char* text) {
  std::string body(text);
  while (!body.empty() && body.back() == '\n') body.pop_back();
  for (const char c : body) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      line += "\n    ";
    } else if (byte < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", byte);
      line += escape;
    } else {
      line += c;
    }
  }
}

}  // namespace

Log_Output::Log_Output(const std::string& level) {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->priority_mask(mask_of(level), ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::msg_backend(this);
  log->set_flags(ACE_Log_Msg::CUSTOM);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

Log_Output::~Log_Output() {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->clr_flags(ACE_Log_Msg::CUSTOM);
  log->set_flags(ACE_Log_Msg::STDERR);
  ACE_Log_Msg::msg_backend(nullptr);
}

ssize_t Log_Output::log(ACE_Log_Record& record) {
  if (record.type() >= LM_ERROR) ++errors_;
  std::string line = time_text(ACE_Time_Value(record.time_stamp()));
  line += ' ';
  line += name_of(record.type());
  const char* const channel = transport::current_channel_label();
  if (*channel != '\0') {
    line += " [";
    line += channel;
    line += ']';
  }
  line += ' ';
  append_escaped(line, record.msg_data());
  line += '\n';
  return ::write(STDERR_FILENO, line.data(), line.size());
}
