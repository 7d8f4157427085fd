#pragma once

#include <utility>

namespace vexa {

/// Runs `action` when the scope ends, however it ends: `const auto undo = on_exit([&] { ... });`.
template <typename Action>
class On_Exit {
public:
  explicit On_Exit(Action action) : action_(std::move(action)) {}
  ~On_Exit() { action_(); }
  On_Exit(const On_Exit&) = delete;
  On_Exit& operator=(const On_Exit&) = delete;

private:
  Action action_;
};

template <typename Action>
On_Exit<Action> on_exit(Action action) {
  return On_Exit<Action>(std::move(action));
}

}  // namespace vexa
