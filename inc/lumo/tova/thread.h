// Threads, counters that several threads may change, and who is running.
//
// A thread record belongs to its caller and must not be started or joined by two threads at once. The thread has a
// copy of what it needs: the record may be freed as soon as it was detached. Null records abort.
#pragma once

#include "lumo/tova/base.h"
#include <pthread.h>

TOVA_C_BEGIN

/// What a thread runs. It returns nothing; a result is passed through the argument.
typedef void (*tova_thread_target)(void* argument);

/// A thread; the members are the layer's own.
typedef struct tova_thread
{
    int32_t _version;
    /// Sequence number of the record, from 1.
    uint32_t _id;
    /// Non-null from start until join or detach.
    tova_thread_target _target;
    void* _arg;
    pthread_t _handle;
    /// -2 to +2, 0 is normal.
    int32_t _priority;
} tova_thread;

/// Prepares a record; no thread runs yet. Two records made at the same instant may get the same number.
TOVA_API void tova_thread_create(tova_thread* t);

/// Starts a thread that calls `target(argument)`: 1 when it was started, 0 when the system has no thread left.
///
/// A record that was started must be joined or detached before it is started again, or it aborts. The new thread has
/// the signal mask of the one that starts it; a host that blocks signals there keeps its handlers off this thread.
TOVA_API int32_t tova_thread_start(tova_thread* t, tova_thread_target target, void* argument);

/// Waits until the thread ends; returns at once when none was started. The record may be started again.
TOVA_API void tova_thread_join(tova_thread* t);

/// Lets the thread run on by itself; its resources are released when it ends. The record may be started again, or be
/// freed.
TOVA_API void tova_thread_detach(tova_thread* t);

/// The same as tova_thread_detach. Deliberate: unlike every other record this one keeps its stamp, because hosts start
/// records again after destroying them.
TOVA_API void tova_thread_destroy(tova_thread* t);

/// The record's sequence number; not what tova_thread_id gives.
TOVA_API uint32_t tova_thread_id_get(tova_thread* t);

/// Sets the priority, -2 (lowest) to +2 (highest), of the running thread or of the next start.
///
/// It maps onto the range of the system's time-sharing policy; where that is one value, as on Linux, nothing changes.
/// Values outside the range are not refused and continue the same line.
TOVA_API void tova_thread_priority_set(tova_thread* t, int32_t priority);

/// The priority last set; 0 after create.
TOVA_API int32_t tova_thread_priority_get(tova_thread* t);

/// Gives up the processor once, to any other thread that is ready.
TOVA_API void tova_thread_yield(void);

/// The system's number of the calling thread.
TOVA_API uint32_t tova_thread_id(void);

/// The system's number of this process.
TOVA_API int32_t tova_process_id(void);

/// Adds one. Increments exclude each other; the runtime must be up (it is, once the library is loaded).
TOVA_API void tova_safe_increment(uint32_t* counter);

/// Takes one off, likewise.
TOVA_API void tova_safe_decrement(uint32_t* counter);

/// Sleeps for `sleep_ms` milliseconds. A signal may end it early; it is not resumed.
TOVA_API void tova_sleep(uint32_t sleep_ms);

TOVA_C_END
