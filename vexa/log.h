#pragma once

#include <ace/Log_Msg.h>
#include <ace/OS_NS_errno.h>

#include "vexa/vexa_export.h"

/// Logs one record through ACE. The source file, line, operation status and errno are set first, so
/// %N, %l and %m print those of this place. Nothing is evaluated when the priority is disabled;
/// errno survives.
#define VEXA_LOG(PRIORITY, STATUS, ...)                                    \
  do {                                                                     \
    const int vexa_errno = ACE_OS::last_error();                           \
    ACE_Log_Msg* const vexa_log = ACE_Log_Msg::instance();                 \
    if (vexa_log->log_priority_enabled(PRIORITY)) {                        \
      vexa_log->conditional_set(__FILE__, __LINE__, (STATUS), vexa_errno); \
      vexa_log->log(PRIORITY, __VA_ARGS__);                                \
      ACE_OS::last_error(vexa_errno);                                      \
    }                                                                      \
  } while (0)

#define VEXA_DEBUG(...) VEXA_LOG(LM_DEBUG, 0, __VA_ARGS__)
#define VEXA_INFO(...) VEXA_LOG(LM_INFO, 0, __VA_ARGS__)
#define VEXA_WARNING(...) VEXA_LOG(LM_WARNING, 0, __VA_ARGS__)
#define VEXA_ERROR(...) VEXA_LOG(LM_ERROR, -1, __VA_ARGS__)

/// A broken contract: when COND fails, logs "Unexpected error in FILE:LINE, TEXT:" with a stack
/// trace at emergency priority and leaves the function: VEXA_CHECK(COND, TEXT, RESULT, values...).
/// TEXT is a literal and may hold ACE format directives, whose values follow RESULT. Not for bad
/// input.
#define VEXA_CHECK(COND, ...) VEXA_CHECK_I(COND, __VA_ARGS__, 0)

// The 0 that ends the values is printed by no directive; it lets the values be none.
#define VEXA_CHECK_I(COND, TEXT, RESULT, ...)                                                \
  do {                                                                                       \
    if (!(COND)) {                                                                           \
      VEXA_LOG(LM_EMERGENCY, -1, "Unexpected error in %N:%l, " TEXT ":\n%?\n", __VA_ARGS__); \
      return RESULT;                                                                         \
    }                                                                                        \
  } while (0)
