// Counting semaphores between the threads of one process, with an upper bound.
//
// The caller owns the record, which must not be copied or moved while it lives. Any thread may set and wait, not only
// the one that made it. Destroy only when nobody waits. Null or unstamped records abort.
#pragma once

#include "lumo/tova/base.h"
#include <pthread.h>

TOVA_C_BEGIN

/// A counting semaphore; the members are the layer's own.
typedef struct tova_semaphore
{
    int32_t _version;
    /// The count, guarded by _mutex.
    int32_t _value;
    /// Its upper bound.
    int32_t _max;
    pthread_mutex_t _mutex;
    pthread_cond_t _condition;
} tova_semaphore;

/// Makes a semaphore of count `value` that never rises above `max`. 0 <= value <= max and max > 0, or it aborts.
TOVA_API void tova_semaphore_create(tova_semaphore* s, int32_t value, int32_t max);

/// Releases the semaphore; a second destroy does nothing.
TOVA_API void tova_semaphore_destroy(tova_semaphore* s);

/// Raises the count by one and wakes one waiter: 1 when raised, 0 when the count is at its bound and stays there.
TOVA_API int32_t tova_semaphore_set(tova_semaphore* s);

/// Takes one off the count, waiting without a limit while it is 0.
TOVA_API void tova_semaphore_wait(tova_semaphore* s);

/// Takes one off the count, waiting at most `wait_ms` milliseconds: 1 when taken, 0 on time-out.
///
/// By the wall clock, as with tova_event_wait_time. 0 takes what is there without waiting.
TOVA_API int32_t tova_semaphore_wait_time(tova_semaphore* s, uint32_t wait_ms);

TOVA_C_END
