// The mutex of the library's classes and the guard that holds it.
//
// Both carry clang's thread-safety annotations: data declared LUMO_GUARDED_BY(a_mutex) may then be touched only while
// that mutex is held, and a build with -Wthread-safety proves it. Other compilers see plain C++.
//
//     lumo::mutex _lock{lumo::mutex::fast};
//     int _count LUMO_GUARDED_BY(_lock) = 0;
//     ...
//     const lumo::scoped_lock hold(_lock);
//     ++_count;
//
// Nothing here throws. Whoever holds two mutexes at once must take them in the same order everywhere.
#pragma once

#include "lumo/tova/mutex.h"

#if defined(__clang__)
/// What clang's analysis reads and other compilers do not know.
#define LUMO_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define LUMO_THREAD_ANNOTATION(x)
#endif

/// On a member: only to be touched while the named mutex is held.
#define LUMO_GUARDED_BY(m) LUMO_THREAD_ANNOTATION(guarded_by(m))
/// On a function: the caller must hold the named mutex.
#define LUMO_REQUIRES(...) LUMO_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// On a function: the caller must not hold the named mutex (it will be taken here, and is not recursive).
#define LUMO_EXCLUDES(...) LUMO_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// On a function whose locking is right but beyond the analysis; say why at the place.
#define LUMO_NO_THREAD_SAFETY_ANALYSIS LUMO_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace lumo {

/// A mutex: recursive, or the fast kind that its own holder must not take twice.
///
/// The fast kind is for short sections that call no other code that locks; a second lock() by its holder waits for
/// ever. The recursive kind is for operations that call one another while they hold it.
///
/// Any thread may lock; the thread that locked unlocks. It must not be destroyed while held. Misuse and impossible
/// platform errors abort with an assertion.
class LUMO_THREAD_ANNOTATION(capability("mutex")) mutex
{
public:
    static constexpr bool fast = true;       ///< the kind that its holder must not lock again
    static constexpr bool recursive = false; ///< the kind that its holder may lock again

    /// Makes a mutex of one of the two kinds above. Deliberate: there is no default, so that each owner chooses.
    explicit mutex(bool kind)
    {
        if (kind == fast)
            tova_mutex_create_fast(&_mutex);
        else
            tova_mutex_create(&_mutex);
    }

    /// Releases what the system keeps for it. Nobody may hold it or wait for it any more.
    ~mutex() { tova_mutex_destroy(&_mutex); }

    mutex(const mutex&) = delete;
    mutex& operator=(const mutex&) = delete;

    /// Waits until the mutex is free, then holds it. Without a limit; prefer scoped_lock, which cannot forget unlock().
    void lock() LUMO_THREAD_ANNOTATION(acquire_capability()) { tova_mutex_lock(&_mutex); }

    /// Gives up one lock(). Only the thread that holds it may; a recursive one is free after as many as it was locked.
    void unlock() LUMO_THREAD_ANNOTATION(release_capability()) { tova_mutex_unlock(&_mutex); }

    /// Holds the mutex if that needs no waiting. Returns whether it is held now.
    bool try_lock() LUMO_THREAD_ANNOTATION(try_acquire_capability(true)) { return tova_mutex_try_lock(&_mutex) != 0; }

private:
    tova_mutex _mutex;
};

/// Holds a mutex for as long as it lives: locked where it is made, unlocked where its scope ends, by an exception too.
/// A local of one function; never shared, copied or moved.
class LUMO_THREAD_ANNOTATION(scoped_lockable) scoped_lock
{
public:
    /// Waits for `held` and takes it; it must live longer than this.
    explicit scoped_lock(mutex& held) LUMO_THREAD_ANNOTATION(acquire_capability(held)) : _held(held) { _held.lock(); }
    /// Gives it back.
    ~scoped_lock() LUMO_THREAD_ANNOTATION(release_capability()) { _held.unlock(); }

    scoped_lock(const scoped_lock&) = delete;
    scoped_lock& operator=(const scoped_lock&) = delete;

private:
    mutex& _held;
};

} // namespace lumo
