#pragma once

#include <memory>

namespace transport {

/// What a channel asks of the connection that owns it. Any thread; nothing happens before the call
/// returns except that the connection's loop is told.
class Wire {
public:
  virtual ~Wire() = default;
  /// There is output in the outbox.
  virtual void wake() = 0;
  /// What it waited for may have come: it looks whether it can read on.
  virtual void resume() = 0;
  /// Close the connection; `reason` is a literal for the log.
  virtual void close_soon(const char* reason) = 0;
};

}  // namespace transport
