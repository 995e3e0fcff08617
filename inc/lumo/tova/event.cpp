// A flag under a mutex, and a condition to sleep on. A woken waiter looks at the flag again, so spurious wake-ups do
// no harm and of several waiters on an auto-reset event the first to retake the lock leaves.
#include "lumo/tova/event.h"
#include "lumo/tova/own/internal.h"

#include <cerrno>
#include <cstring>

namespace {

void check(const tova_event* e)
{
    tova_assert(e);
    tova_assert(e->_version == tova_version);
}

inline void lock(tova_event* e)
{
    check(e);
    if (pthread_mutex_lock(&e->_mutex) != 0)
        tova_assert(false);
}

} // namespace

void tova_event_create(tova_event* e, int32_t auto_reset)
{
    tova_assert(e);
    memset(e, 0, sizeof *e);
    e->_auto_reset = auto_reset;
    // The stamp comes last, so that a record that could not be made is an unstamped one. Default attributes for both:
    // no thread locks this mutex twice, and every system can wait by the wall clock.
    if (pthread_mutex_init(&e->_mutex, nullptr) != 0)
        return;
    if (pthread_cond_init(&e->_condition, nullptr) != 0) {
        pthread_mutex_destroy(&e->_mutex);
        return;
    }
    e->_version = tova_version;
}

void tova_event_destroy(tova_event* e)
{
    tova_assert(e);
    if (e->_version != tova_version)
        return;
    e->_version = 0;
    pthread_cond_destroy(&e->_condition);
    pthread_mutex_destroy(&e->_mutex);
}

void tova_event_set(tova_event* e)
{
    lock(e);
    e->_signalled = 1;
    // All waiters, with auto-reset too: the first one to retake the lock takes the signal.
    pthread_cond_broadcast(&e->_condition);
    pthread_mutex_unlock(&e->_mutex);
}

void tova_event_reset(tova_event* e)
{
    lock(e);
    e->_signalled = 0;
    pthread_mutex_unlock(&e->_mutex);
}

namespace {

// Ends a wait: takes the signal of an auto-reset event and gives the lock back.
int32_t leave(tova_event* e)
{
    const int32_t signalled = e->_signalled;
    if (signalled && e->_auto_reset)
        e->_signalled = 0;
    pthread_mutex_unlock(&e->_mutex);
    return signalled;
}

} // namespace

void tova_event_wait(tova_event* e)
{
    lock(e);
    // A platform error ends the wait as if the event had been set; there is no result to report it with.
    while (!e->_signalled && pthread_cond_wait(&e->_condition, &e->_mutex) == 0) {
    }
    leave(e);
}

int32_t tova_event_wait_time(tova_event* e, uint32_t wait_ms)
{
    // Computed before locking, so that waiting for the lock counts. A wait of 0 needs neither the time nor a system
    // call, which might give the processor away for nothing.
    const timespec deadline = wait_ms != 0 ? tova::deadline_in(wait_ms) : timespec{};
    lock(e);
    if (!e->_signalled && wait_ms != 0) {
        int result = 0;
        while (!e->_signalled && result == 0)
            result = pthread_cond_timedwait(&e->_condition, &e->_mutex, &deadline);
        if (result != 0 && result != ETIMEDOUT)
            tova_assert(false);
    }
    // The flag decides, not the clock: a set at the moment of the time-out counts.
    return leave(e);
}
