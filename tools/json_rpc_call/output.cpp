#include "tools/json_rpc_call/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "tools/json_rpc_call/exit_status.h"
#include "vexa/json_dump.h"

namespace {

std::mutex& writing = *new std::mutex;  // held for a line; usable until the process is gone

bool write_all(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(written);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// As JSON, ending in one line feed.
std::string json_text(const json_spirit::Value& value, bool pretty) {
  std::string text = JSON_Dump(value, pretty).str();
  if (text.empty() || text.back() != '\n') text += '\n';
  return text;
}

bool is_text(const json_spirit::Value& value) {
  return value.type() == json_spirit::str_type || value.type() == json_spirit::secure_str_type;
}

bool print_text(const std::string& text) {
  const std::lock_guard<std::mutex> guard(writing);
  return write_all(STDOUT_FILENO, text);
}

}  // namespace

bool print_line(std::string_view text) {
  std::string line(text);
  line += '\n';
  return print_text(line);
}

int print_value(const json_spirit::Value& value, const Output_Style& style) {
  const bool printed = style.raw && is_text(value) ? print_line(value.get_str())
                                                   : print_text(json_text(value, style.pretty));
  if (printed) return EXIT_ANSWERED;
  return complain(std::string("cannot write the result: ") + std::strerror(errno));
}

int print_error(const json_spirit::Value& error, const Output_Style& style) {
  print_diagnostics(json_text(error, style.pretty));
  return EXIT_ERROR;
}

int complain(const std::string& text) {
  print_diagnostics("json_rpc_call: " + text + '\n');
  return EXIT_FAILED;
}

void print_diagnostics(std::string_view text) {
  const std::lock_guard<std::mutex> guard(writing);
  write_all(STDERR_FILENO, text);  // where this fails there is nobody left to tell
}

void leave(int status) {
  writing.lock();
  ::_exit(status);
}
