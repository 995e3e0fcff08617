// Mutual exclusion between the threads of one process.
//
// The caller owns the record. Any thread may call. Misuse (a null or unstamped record) and impossible platform errors
// abort.
#pragma once

#include "lumo/tova/base.h"
#include <pthread.h>

TOVA_C_BEGIN

/// A mutex; the members are the layer's own. Must not be copied or moved while it lives.
typedef struct tova_mutex
{
    int32_t _version;
    pthread_mutex_t _mutex;
} tova_mutex;

/// Makes the usual mutex, which is recursive: its holder may lock it again and unlocks it as often.
TOVA_API void tova_mutex_create(tova_mutex* m);

/// Makes a plain mutex for short, hot sections that never lock it twice; a second lock by its holder hangs.
TOVA_API void tova_mutex_create_fast(tova_mutex* m);

/// Releases the mutex. It must not be held; a second destroy does nothing.
TOVA_API void tova_mutex_destroy(tova_mutex* m);

/// Waits until the mutex is free and takes it. There is no limit to the wait, and no order among those who wait.
TOVA_API void tova_mutex_lock(tova_mutex* m);

/// Gives the mutex back; only its holder may. Another thread that tries aborts with the recursive kind, and breaks the
/// plain one.
TOVA_API void tova_mutex_unlock(tova_mutex* m);

/// Takes the mutex without waiting: 1 when it is held now, 0 when it was taken already.
TOVA_API int32_t tova_mutex_try_lock(tova_mutex* m);

TOVA_C_END
