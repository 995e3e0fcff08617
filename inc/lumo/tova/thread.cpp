// Threads of the platform behind records of the caller. Nothing guards a record: one thread starts and joins it.
#include "lumo/tova/thread.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/platform/platform.h"

#include <cstring>
#include <memory>
#include <new>
#include <sched.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

void check(const tova_thread* t)
{
    tova_assert(t);
    tova_assert(t->_version == tova_version);
}

// Incremented under a lock and read without it. Deliberate: two records made at once may get one number, which is for
// display only and not worth a lock.
uint32_t threads_created;

} // namespace

void tova_thread_create(tova_thread* t)
{
    tova_assert(t);
    memset(t, 0, sizeof *t);
    tova_safe_increment(&threads_created);
    t->_version = tova_version;
    t->_id = __atomic_load_n(&threads_created, __ATOMIC_RELAXED);
}

namespace {

// Decrements the count however the target ends, by pthread_exit too.
struct living_thread
{
    ~living_thread() { tova::living_threads.fetch_sub(1); }
};

// The platform's start routine. It owns a copy of the record, because the caller's may be detached and gone by now.
void* tova_thread_entry(void* argument)
{
    const living_thread counted;
    const std::unique_ptr<tova_thread> t(static_cast<tova_thread*>(argument));
    tova_assert(t);
    tova_assert(t->_target);
    t->_target(t->_arg);
    return nullptr;
}

// The priority is only a request: a refusal by the system is no failure.
void tova_thread_unix_set_priority(tova_thread* t)
{
    const int lowest = sched_get_priority_min(SCHED_OTHER);
    const int highest = sched_get_priority_max(SCHED_OTHER);
    // A range of one value, as Linux has it, leaves nothing to choose.
    if (lowest == highest)
        return;
    sched_param parameters{};
    parameters.sched_priority = tova::platform_priority(t->_priority, lowest, highest);
    pthread_setschedparam(t->_handle, SCHED_OTHER, &parameters);
}

// Creates the platform thread; false when there is no memory or no thread left.
bool launch(tova_thread* t)
{
    // Without an exception: too little memory means that the thread could not be started.
    std::unique_ptr<tova_thread> copy(new (std::nothrow) tova_thread(*t));
    if (!copy)
        return false;
    // Counted before it starts: an exit in between must see it.
    tova::living_threads.fetch_add(1);
    if (pthread_create(&t->_handle, nullptr, tova_thread_entry, copy.get()) != 0) {
        tova::living_threads.fetch_sub(1);
        return false;
    }
    (void)copy.release(); // the new thread ends it
    return true;
}

} // namespace

int32_t tova_thread_start(tova_thread* t, tova_thread_target target, void* argument)
{
    // Deliberate: the stamp is not checked, because hosts start zeroed records as well as created ones.
    tova_assert(t);
    if (t->_target)
        tova_assert(false);
    t->_target = target;
    t->_arg = argument;
    if (!launch(t)) {
        t->_target = nullptr;
        return 0;
    }
    // Only now: a thread that does not run yet has no handle to set the priority of.
    if (t->_priority != 0)
        tova_thread_unix_set_priority(t);
    return 1;
}

void tova_thread_join(tova_thread* t)
{
    check(t);
    if (!t->_target)
        return;
    // It fails when a thread joins itself, and when the thread was joined already without this record.
    if (pthread_join(t->_handle, nullptr) != 0)
        tova_assert(false);
    // The handle is kept; the null target alone says that nothing runs.
    t->_target = nullptr;
}

void tova_thread_detach(tova_thread* t)
{
    check(t);
    if (!t->_target)
        return;
    pthread_detach(t->_handle);
    // The handle is cleared too, unlike after a join: the system may give its value to another thread at any time now.
    t->_target = nullptr;
    memset(&t->_handle, 0, sizeof t->_handle);
}

void tova_thread_destroy(tova_thread* t)
{
    tova_thread_detach(t);
}

uint32_t tova_thread_id_get(tova_thread* t)
{
    check(t);
    return t->_id;
}

void tova_thread_priority_set(tova_thread* t, int32_t priority)
{
    check(t);
    if (priority == t->_priority)
        return;
    t->_priority = priority;
    if (t->_target)
        tova_thread_unix_set_priority(t);
}

int32_t tova_thread_priority_get(tova_thread* t)
{
    check(t);
    return t->_priority;
}

void tova_thread_yield(void)
{
    sched_yield();
}

// Not the record's number: threads that the host made have no record.
uint32_t tova_thread_id(void)
{
    return tova::platform::thread_number();
}

int32_t tova_process_id(void)
{
    return static_cast<int32_t>(getpid());
}

// Deliberate: increments and decrements hold different mutexes, because each only orders calls of its own kind. The
// addition is atomic, so none is lost when the two meet.
void tova_safe_increment(uint32_t* counter)
{
    tova_mutex_lock(&g_increment_mutex);
    __atomic_fetch_add(counter, 1, __ATOMIC_SEQ_CST);
    tova_mutex_unlock(&g_increment_mutex);
}

void tova_safe_decrement(uint32_t* counter)
{
    tova_mutex_lock(&g_decrement_mutex);
    __atomic_fetch_sub(counter, 1, __ATOMIC_SEQ_CST);
    tova_mutex_unlock(&g_decrement_mutex);
}

void tova_sleep(uint32_t sleep_ms)
{
    // select() without descriptors only waits, and is not resumed after a signal.
    timeval time{};
    time.tv_sec = static_cast<time_t>(sleep_ms / 1000);
    time.tv_usec = static_cast<suseconds_t>(sleep_ms % 1000 * 1000);
    select(0, nullptr, nullptr, nullptr, &time);
}
