#pragma once

#include <functional>
#include <string>

/// What became of one attempt.
struct Outcome {
  int status = 0;      ///< the exit status, if this was the last attempt
  bool again = false;  ///< another attempt may do better
  std::string reason;  ///< why it failed, for one line; "" when all has been said

  static Outcome done(int status) { return {status, false, std::string()}; }
  static Outcome failed(std::string reason);
  /// Another attempt would fail as well.
  static Outcome hopeless(std::string reason);
};

/// Attempts until one need not be repeated, with waits of 1, 2, 4 and so on up to 60 seconds, with
/// jitter, in between; at most `retries` times more, and until the waits add up to `seconds`; -1
/// lifts either limit. Complains of the last failure; the exit status.
int attempt(int retries, int seconds, const std::function<Outcome()>& operation);
