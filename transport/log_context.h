#pragma once

#include "transport/transport_export.h"

namespace transport {

/// The channel that the calling thread is working for, for log lines: "" when there is none.
TRANSPORT_EXPORT const char* current_channel_label();

/// Names the channel of the calling thread's log lines while it lives; the text outlives it.
class TRANSPORT_EXPORT Log_Context {
public:
  explicit Log_Context(const char* label);
  ~Log_Context();
  Log_Context(const Log_Context&) = delete;
  Log_Context& operator=(const Log_Context&) = delete;

private:
  const char* const outer_;
};

}  // namespace transport
