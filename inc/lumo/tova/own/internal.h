// What the layer's sources share among themselves, and the arithmetic that tests reach without waiting. Not installed.
#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>
#include <sys/time.h>

/// On an object of the library at namespace scope: constructed before those of the host, whose constructors may open
/// sessions. In a statically linked program the order would otherwise be arbitrary. Expands to nothing where the object
/// format has no such order (Darwin).
#if __has_attribute(init_priority)
#define TOVA_BEFORE_THE_HOST __attribute__((init_priority(101)))
#else
#define TOVA_BEFORE_THE_HOST
#endif

struct tova_mutex;
struct tova_security;
struct tova_time;

extern tova_mutex g_increment_mutex;
extern tova_mutex g_decrement_mutex;
extern uint64_t g_resolution;         ///< clock ticks per second
extern uint64_t g_resolution_ms;      ///< per millisecond
extern uint64_t g_resolution_us;      ///< per microsecond
extern double g_resolution_us_double; ///< per microsecond
extern double g_resolution_ns_double; ///< per nanosecond

namespace tova {

/// Threads of ours between start and end. While there are any, unloading leaves the runtime up for them.
extern std::atomic<int32_t> living_threads;

/// The wall-clock moment `wait_ms` after `now`.
constexpr timespec deadline_after(timeval now, uint32_t wait_ms)
{
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(wait_ms / 1000);
    deadline.tv_nsec = static_cast<long>(now.tv_usec) * 1000 + static_cast<long>(wait_ms % 1000) * 1'000'000;
    if (deadline.tv_nsec >= 1'000'000'000) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1'000'000'000;
    }
    return deadline;
}

/// By the wall clock, since conditions wait by it on every system; not all of them let one choose another clock.
inline timespec deadline_in(uint32_t wait_ms)
{
    timeval now;
    gettimeofday(&now, nullptr);
    return deadline_after(now, wait_ms);
}

/// Ticks per second of a clock whose tick lasts numerator / denominator nanoseconds.
///
/// Deliberate: the product wraps at 2^32, because hosts divide by tova_time_resolution() and its values must stay.
constexpr uint32_t ticks_per_second(uint32_t numerator, uint32_t denominator)
{
    return denominator * 1'000'000'000u / numerator;
}

/// Derives the clock's other scales from its ticks per second.
void set_resolution(uint64_t per_second);

/// Maps a priority of -2 to +2 onto a system's range; values outside continue the line.
constexpr int32_t platform_priority(int32_t priority, int32_t lowest, int32_t highest)
{
    const int64_t p = priority;
    return static_cast<int32_t>(((2 - p) * lowest + (p + 2) * highest) / 4);
}

/// The same as gmtime_r, without a lock; false for a moment more than 32,000 years from 1970.
bool time_utc_from(time_t moment, tm* utc);

/// Minutes that local time is east of Greenwich now, whatever the zone's name, for which tova_time has 32 characters.
int32_t minutes_east();

/// Fills `t`, which must be zeroed, with a moment in the zone in force, without milliseconds; `bias` counts east.
void time_local_from(time_t moment, tova_time* t);

/// What tova_security_file_set does, to the open file itself, whatever stands at its path by now.
int32_t security_descriptor_set(tova_security* s, int32_t descriptor);

} // namespace tova
