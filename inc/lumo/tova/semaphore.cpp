// A count under a mutex, and a condition to sleep on. Not the system's semaphore, which has no upper bound, and on one
// of the two systems no timed wait.
#include "lumo/tova/semaphore.h"
#include "lumo/tova/own/internal.h"

#include <cerrno>
#include <cstring>

namespace {

void check(const tova_semaphore* s)
{
    tova_assert(s);
    tova_assert(s->_version == tova_version);
}

} // namespace

void tova_semaphore_create(tova_semaphore* s, int32_t value, int32_t max)
{
    tova_assert(s);
    // Checked before the record is changed, so that a dump of the aborted process shows what it held.
    tova_assert(value >= 0 && max > 0 && value <= max);
    memset(s, 0, sizeof *s);
    s->_value = value;
    s->_max = max;
    s->_version = tova_version;
    if (pthread_mutex_init(&s->_mutex, nullptr) != 0 || pthread_cond_init(&s->_condition, nullptr) != 0)
        tova_assert(false);
}

void tova_semaphore_destroy(tova_semaphore* s)
{
    tova_assert(s);
    if (s->_version != tova_version)
        return;
    s->_version = 0;
    pthread_cond_destroy(&s->_condition);
    pthread_mutex_destroy(&s->_mutex);
}

int32_t tova_semaphore_set(tova_semaphore* s)
{
    check(s);
    // Setting is the one operation that has a result to report a failed lock with; the others can only abort.
    if (pthread_mutex_lock(&s->_mutex) != 0)
        return 0;
    const bool raised = s->_value < s->_max;
    if (raised) {
        // One count lets one waiter through, so one is woken.
        ++s->_value;
        pthread_cond_signal(&s->_condition);
    }
    pthread_mutex_unlock(&s->_mutex);
    return raised;
}

void tova_semaphore_wait(tova_semaphore* s)
{
    check(s);
    if (pthread_mutex_lock(&s->_mutex) != 0)
        tova_assert(false);
    // Tested again after each wake-up: another waiter may have been faster.
    while (s->_value <= 0 && pthread_cond_wait(&s->_condition, &s->_mutex) == 0) {
    }
    // Also after a platform error: the caller goes on as if it had its count, so the count must say so.
    --s->_value;
    pthread_mutex_unlock(&s->_mutex);
}

int32_t tova_semaphore_wait_time(tova_semaphore* s, uint32_t wait_ms)
{
    check(s);
    // Computed before locking, so that waiting for the lock counts.
    const timespec deadline = tova::deadline_in(wait_ms);
    if (pthread_mutex_lock(&s->_mutex) != 0)
        tova_assert(false);
    int result = 0;
    while (s->_value <= 0 && result == 0)
        result = pthread_cond_timedwait(&s->_condition, &s->_mutex, &deadline);
    if (result != 0 && result != ETIMEDOUT)
        tova_assert(false);
    // As with events the count decides: a set at the moment of the time-out is taken.
    const bool taken = s->_value > 0;
    if (taken)
        --s->_value;
    pthread_mutex_unlock(&s->_mutex);
    return taken;
}
