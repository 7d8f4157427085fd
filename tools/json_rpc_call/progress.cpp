#include "tools/json_rpc_call/progress.h"

#include <unistd.h>

#include <utility>

#include "tools/json_rpc_call/output.h"

namespace {

constexpr std::chrono::seconds silence{1};
constexpr std::chrono::milliseconds period{500};
const char* const erased_line = "\r\033[K";

}  // namespace

Progress::Progress(Text text) : text_(std::move(text)) {
  if (::isatty(STDERR_FILENO)) thread_ = std::thread([this] { run(); });
}

Progress::~Progress() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
  }
  end_.notify_one();
  thread_.join();
}

void Progress::run() {
  const auto begin = std::chrono::steady_clock::now();
  std::unique_lock<std::mutex> guard(mutex_);
  if (end_.wait_for(guard, silence, [this] { return ended_; })) return;
  do {
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    print_diagnostics(erased_line + text_(elapsed));
  } while (!end_.wait_for(guard, period, [this] { return ended_; }));
  print_diagnostics(erased_line);
}
