// The monotonic clock, and calendar time with its text forms.
//
// All functions may be called from any thread. Local times read the zone from the environment (TZ), so a host must
// not change its environment on another thread meanwhile; that is so with every C library.
#pragma once

#include "lumo/tova/base.h"

TOVA_C_BEGIN

/// A calendar time, broken down. Two of them are compared field by field; there is no arithmetic on it.
typedef struct tova_time
{
    /// All four digits.
    uint16_t year;
    /// 1 to 12.
    uint16_t month;
    /// 0 to 6, 0 is Sunday.
    uint16_t week_day;
    /// 1 to 31.
    uint16_t day;
    /// 0 to 23.
    uint16_t hour;
    /// 0 to 59.
    uint16_t minute;
    /// 0 to 60.
    uint16_t second;
    /// 0 to 999.
    uint16_t millisecond;
    /// Minutes between local time and UTC. Of tova_time_local positive west of Greenwich, 300 for UTC-5; of a file's
    /// times positive east of it, -300 for UTC-5.
    int16_t bias;
    /// Daylight saving: positive in effect, 0 not, negative unknown.
    int16_t daylight;
    /// Abbreviation of the zone.
    char zone[32];
} tova_time;

/// The text forms of tova_time_string.
enum
{
    /// 2010-06-17 09:05:03.042.
    tova_time_form_full = 0,
    /// 2010-06-17.
    tova_time_form_date = 1,
    /// 2010-06-17T09:05:03.
    tova_time_form_iso = 2,
    /// "Thu, 17 Jun 2010 09:05:03 ". Deliberate: it ends in a space and names no zone, so that the caller appends one.
    tova_time_form_header = 3
};

/// Ticks of the monotonic clock since an arbitrary start. Differences are durations, tova_time_ms gives them a unit.
TOVA_API uint64_t tova_time_units(void);

/// Ticks per second: 1,000,000,000 on Linux. Deliberate: computed in 32 bits, where a clock of more than 4.29 GHz
/// wraps, because hosts divide by this number and its values must stay.
TOVA_API uint64_t tova_time_resolution(void);

/// Ticks to whole milliseconds, the rest cut off. Aborts when the runtime was never started; so do the next two.
TOVA_API uint64_t tova_time_ms(uint64_t units);

/// Ticks to whole microseconds, the rest cut off.
TOVA_API uint64_t tova_time_us(uint64_t units);

/// Ticks to nanoseconds, by way of a double: exact to 53 bits, and UINT64_MAX for what is more than that.
TOVA_API uint64_t tova_time_ns(uint64_t units);

/// Fills `t` with now in the zone in force (TZ, else the system's). `bias` counts daylight saving in.
TOVA_API void tova_time_local(tova_time* t);

/// Fills `t` with now in UTC: zone "GMT", bias 0. `t` must not be null, here as above.
TOVA_API void tova_time_gmt(tova_time* t);

/// Writes `t` in one of the forms above into `buffer` of `size` characters, terminator included.
///
/// Returns the length, or 0 with an empty buffer when the text does not fit. An unknown form aborts.
TOVA_API int32_t tova_time_string(const tova_time* t, int32_t form, char* buffer, int32_t size);

TOVA_C_END
