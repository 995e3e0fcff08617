// Signals between processes, found by name.
//
// A global event counts: each set is remembered until one wait takes it; there is neither reset nor broadcast. It is
// a named semaphore of the system and outlives the processes that use it until one of them destroys it. The caller
// owns the record; any thread may set and wait.
#pragma once

#include "lumo/tova/base.h"
#include <semaphore.h>

TOVA_C_BEGIN

/// A global event of this process; the members are the layer's own.
typedef struct tova_global_event
{
    int32_t _version;
    /// SEM_FAILED when none is open.
    sem_t* _sem;
    /// The system's name: "/" and the event's name.
    char _name[1024];
} tova_global_event;

/// Opens the event called `name`, making it with count 0 when there is none: 1 when it is open, else 0.
///
/// A name holds no slash and no backslash and at most 1,022 characters, or it aborts; the system may allow fewer
/// (251 on Linux), which is a result of 0. An event that exists is opened with the count it has.
TOVA_API int32_t tova_global_event_create(tova_global_event* ge, const char* name);

/// 1 when an event of that name exists, else 0; leaves nothing behind.
///
/// It tries to create the event. Deliberate: any failure of that counts as "exists", because a caller that hears "no"
/// goes on to create it, which would fail the same way.
TOVA_API int32_t tova_global_event_exists(const char* name);

/// Closes the event and removes its name from the system, even while other processes hold it open: they keep theirs,
/// later creates make a new one. A second destroy does nothing.
TOVA_API void tova_global_event_destroy(tova_global_event* ge);

/// Raises the count by one and so lets one waiter, of any process, through.
TOVA_API void tova_global_event_set(tova_global_event* ge);

/// Takes one off the count, waiting while it is 0.
///
/// Deliberate: a signal that interrupts the wait aborts the process like any other failure of it, because there is no
/// result to report that the count was not taken. A host that uses signals waits with tova_global_event_try_wait
/// instead, or blocks signals on the waiting thread.
TOVA_API void tova_global_event_wait(tova_global_event* ge);

/// Takes one off the count without waiting: 1 when taken, 0 when there was none.
TOVA_API int32_t tova_global_event_try_wait(tova_global_event* ge);

TOVA_C_END
