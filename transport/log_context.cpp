#include "transport/log_context.h"

namespace transport {

namespace {

thread_local const char* label = "";

}  // namespace

const char* current_channel_label() { return label; }

Log_Context::Log_Context(const char* text) : outer_(label) { label = text; }
Log_Context::~Log_Context() { label = outer_; }

}  // namespace transport
