// The layer's process-wide state: start-up, shut-down and the log hook.
//
// Loading the library starts the runtime and unloading it shuts it down, so a host rarely calls these itself.
#pragma once

#include "lumo/tova/base.h"

TOVA_C_BEGIN

/// Receives what the layer logs. The message is NUL-terminated, at most 511 characters, and valid during the call only.
///
/// Called on the thread that logs, by several threads at once if they log at once.
typedef void (*tova_log_callback)(int32_t level, const char* message);

/// Measures the monotonic clock and makes the locks of the safe counters.
///
/// A flag, not a count: calls after the first do nothing, and a single tova_shutdown undoes them all. Not guarded:
/// meant to run before other threads exist.
TOVA_API void tova_initialize(void);

/// Undoes tova_initialize; does nothing when the runtime is not up. No other thread may be inside the layer.
TOVA_API void tova_shutdown(void);

/// Registers the log callback in place of any earlier one; NULL switches logging off. Any thread.
TOVA_API void tova_log_register(tova_log_callback callback);

/// Formats a message and hands it to the registered callback; does nothing without one. Any thread.
///
/// A message of 512 characters or more arrives as the empty text. Deliberate: it is not cut short, so that a reader of
/// the log never takes half a message for a whole one. tova_http_request logs a failed transfer at level 2.
TOVA_API void tova_log(int32_t level, const char* format, ...) TOVA_PRINTF(2, 3);

TOVA_C_END
