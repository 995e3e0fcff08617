// Signals between the threads of one process: a flag to wait for.
//
// The caller owns the record, which must not be copied or moved while it lives. Any thread may set, reset and wait.
// Destroy only when nobody waits. Null or unstamped records abort.
#pragma once

#include "lumo/tova/base.h"
#include <pthread.h>

TOVA_C_BEGIN

/// An event; the members are the layer's own.
typedef struct tova_event
{
    int32_t _version;
    /// Non-zero: a wait that succeeds clears the signal.
    int32_t _auto_reset;
    /// 0 or 1, guarded by _mutex.
    int32_t _signalled;
    pthread_mutex_t _mutex;
    pthread_cond_t _condition;
} tova_event;

/// Makes an event that is not set.
///
/// A non-zero `auto_reset` lets each set through to one wait; otherwise the event stays set until it is reset. When the
/// system lacks the resources, the record stays unstamped and nothing is reported: the next operation aborts.
TOVA_API void tova_event_create(tova_event* e, int32_t auto_reset);

/// Releases the event; a second destroy does nothing.
TOVA_API void tova_event_destroy(tova_event* e);

/// Sets the event and wakes its waiters: all of them leave, or with auto-reset exactly one.
///
/// A set that nobody waits for is kept until the next wait; several sets before it count as one.
TOVA_API void tova_event_set(tova_event* e);

/// Clears the event. Waiters go on waiting; one that was woken but has not yet retaken the lock waits again.
TOVA_API void tova_event_reset(tova_event* e);

/// Waits until the event is set, without a limit.
TOVA_API void tova_event_wait(tova_event* e);

/// Waits until the event is set, at most `wait_ms` milliseconds: 1 when it was set, 0 on time-out.
///
/// The time that others hold the event's lock counts. The deadline is a time of the wall clock, so setting the clock
/// during a wait moves it. Deliberate: not every supported system lets a condition wait by another clock. The same
/// holds for semaphores. 0 tests the event without waiting.
TOVA_API int32_t tova_event_wait_time(tova_event* e, uint32_t wait_ms);

TOVA_C_END
