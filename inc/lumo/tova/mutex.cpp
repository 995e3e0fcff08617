// A POSIX mutex behind a stamp. Every event locks one, so the checks are two compares, and the code for their failure
// is out of line.
#include "lumo/tova/mutex.h"

#include <cerrno>
#include <cstring>

namespace {

void check(const tova_mutex* m)
{
    tova_assert(m);
    tova_assert(m->_version == tova_version);
}

// The attribute object is released whether or not the mutex could be made.
void create(tova_mutex* m, int type)
{
    tova_assert(m);
    memset(m, 0, sizeof *m);
    m->_version = tova_version;
    pthread_mutexattr_t attributes;
    bool done = pthread_mutexattr_init(&attributes) == 0;
    if (done) {
        done = pthread_mutexattr_settype(&attributes, type) == 0 && pthread_mutex_init(&m->_mutex, &attributes) == 0;
        pthread_mutexattr_destroy(&attributes);
    }
    if (!done)
        tova_assert(false);
}

} // namespace

// The plain name makes the recursive kind: code that a callback leads back into itself must not hang.
void tova_mutex_create(tova_mutex* m)
{
    create(m, PTHREAD_MUTEX_RECURSIVE);
}

void tova_mutex_create_fast(tova_mutex* m)
{
    create(m, PTHREAD_MUTEX_NORMAL);
}

void tova_mutex_destroy(tova_mutex* m)
{
    tova_assert(m);
    if (m->_version != tova_version)
        return;
    // The stamp is cleared first: a later use meets the assertion rather than a half-released object.
    m->_version = 0;
    pthread_mutex_destroy(&m->_mutex);
}

void tova_mutex_lock(tova_mutex* m)
{
    check(m);
    // The only possible error is too many locks by one holder, and no caller could go on without the mutex.
    if (pthread_mutex_lock(&m->_mutex) != 0)
        tova_assert(false);
}

void tova_mutex_unlock(tova_mutex* m)
{
    check(m);
    // The recursive kind refuses a thread that does not hold it; the plain kind cannot tell.
    if (pthread_mutex_unlock(&m->_mutex) != 0)
        tova_assert(false);
}

int32_t tova_mutex_try_lock(tova_mutex* m)
{
    check(m);
    // EBUSY is an expected result; any other error means that the record is broken.
    const int result = pthread_mutex_trylock(&m->_mutex);
    if (result != 0 && result != EBUSY)
        tova_assert(false);
    return result == 0;
}
