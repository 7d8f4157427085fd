#include "tools/json_rpc_call/attempts.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "tools/json_rpc_call/exit_status.h"
#include "tools/json_rpc_call/output.h"
#include "tools/json_rpc_call/progress.h"
#include "vexa/exponential_backoff_iterator.h"
#include "vexa/log.h"

Outcome Outcome::failed(std::string reason) { return {EXIT_FAILED, true, std::move(reason)}; }
Outcome Outcome::hopeless(std::string reason) { return {EXIT_FAILED, false, std::move(reason)}; }

namespace {

void wait_for_next(int number, unsigned seconds, const std::string& reason) {
  VEXA_INFO("Attempt %d failed: %C; the next is in %u s.\n", number, reason.c_str(), seconds);
  const Progress progress([&](std::chrono::seconds elapsed) {
    return reason + "; attempt " + std::to_string(number + 1) + " in " +
           std::to_string(seconds - elapsed.count()) + " s";
  });
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
}

}  // namespace

int attempt(int retries, int seconds, const std::function<Outcome()>& operation) {
  Exponential_Backoff_Iterator wait(1, Exponential_Backoff_Iterator::unlimited, 60, true);
  for (int number = 1;; ++number, ++wait) {
    const Outcome outcome = operation();
    const bool over =
        (retries != -1 && number > retries) || (seconds != -1 && wait.cumulation() >= seconds);
    if (!outcome.again || over) {
      if (!outcome.reason.empty()) complain(outcome.reason);
      return outcome.status;
    }
    wait_for_next(number, *wait, outcome.reason);
  }
}
