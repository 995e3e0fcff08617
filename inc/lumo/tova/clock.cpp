// The monotonic clock in the platform's ticks, and calendar time as the C library gives it. The scales that start-up
// has measured are only read here, so no lock is needed.
#include "lumo/tova/clock.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/platform/platform.h"
#include "lumo/tova/runtime.h"
#include "lumo/tova/text.h"

#include <chrono>
#include <cstring>

uint64_t tova_time_units(void)
{
    // A static initialiser of the host may measure time before that of the library has run.
    tova_initialize();
    return tova::platform::clock_ticks();
}

uint64_t tova_time_resolution(void)
{
    // Asked of the platform each time rather than read from the state, so it is right before start-up too.
    const tova::platform::time_base base = tova::platform::clock_time_base();
    return tova::ticks_per_second(base.numerator, base.denominator);
}

// Cut off, never rounded up: what is measured must not seem to have lasted longer than it did.
uint64_t tova_time_ms(uint64_t units)
{
    tova_assert(g_resolution);
    return units / g_resolution_ms;
}

namespace {

// Converting a double of 2^64 or more is undefined, so such a count becomes the largest one.
uint64_t whole(double count)
{
    return count < 18446744073709551616.0 ? static_cast<uint64_t>(count) : UINT64_MAX;
}

} // namespace

uint64_t tova_time_us(uint64_t units)
{
    tova_assert(g_resolution);
    // Below a thousand ticks the whole number would be too coarse a divisor: 24.576 MHz has 24 in it.
    if (g_resolution_us < 1000)
        return whole(static_cast<double>(units) / g_resolution_us_double);
    return units / g_resolution_us;
}

// Always by way of the double, since a tick may be shorter or longer than a nanosecond.
uint64_t tova_time_ns(uint64_t units)
{
    tova_assert(g_resolution);
    return whole(static_cast<double>(units) / g_resolution_ns_double);
}

namespace {

// The zone's offset counts east here, as the C library gives it.
void tova_time_unix_from_tm(const tm& from, tova_time* t)
{
    t->year = static_cast<uint16_t>(from.tm_year + 1900);
    t->month = static_cast<uint16_t>(from.tm_mon + 1);
    t->week_day = static_cast<uint16_t>(from.tm_wday);
    t->day = static_cast<uint16_t>(from.tm_mday);
    t->hour = static_cast<uint16_t>(from.tm_hour);
    t->minute = static_cast<uint16_t>(from.tm_min);
    t->second = static_cast<uint16_t>(from.tm_sec);
    t->millisecond = 0;
    t->bias = static_cast<int16_t>(from.tm_gmtoff / 60);
    t->daylight = static_cast<int16_t>(from.tm_isdst);
    tova_strcpy(t->zone, sizeof t->zone, from.tm_zone);
}

} // namespace

// By the calendar of the C++ library ([time.cal] of the C++20 standard: the Gregorian one, carried on into the past),
// which is plain arithmetic. gmtime_r would take the C library's lock of the time zone: a child that was forked while
// another thread held that lock would wait for it for ever. Days have 86,400 seconds, as POSIX counts them.
bool tova::time_utc_from(time_t moment, tm* utc)
{
    using namespace std::chrono;
    constexpr seconds range = days(365 * 32'000); // well inside the years that the calendar can name
    const seconds since{moment};
    if (since > range || since < -range)
        return false;
    const sys_days day{floor<days>(since)};
    const year_month_day date{day};
    const hh_mm_ss time{since - floor<days>(since)};
    *utc = {};
    utc->tm_year = static_cast<int>(date.year()) - 1900;
    utc->tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    utc->tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    utc->tm_wday = static_cast<int>(weekday(day).c_encoding());
    utc->tm_yday = (day - sys_days(date.year() / January / 1)).count();
    utc->tm_hour = static_cast<int>(time.hours().count());
    utc->tm_min = static_cast<int>(time.minutes().count());
    utc->tm_sec = static_cast<int>(time.seconds().count());
    utc->tm_zone = const_cast<char*>("GMT"); // by this name on every system; some declare it without const
    return true;
}

namespace {

// localtime_r alone would not see a TZ that the host changed since; localtime itself shares its buffer.
bool local_from(time_t moment, tm* local)
{
    tzset();
    return localtime_r(&moment, local) != nullptr;
}

} // namespace

void tova::time_local_from(time_t moment, tova_time* t)
{
    // A file's time may lie in a year that no calendar here can name; its record stays zero, as for no time at all.
    if (tm local{}; local_from(moment, &local))
        tova_time_unix_from_tm(local, t);
}

int32_t tova::minutes_east()
{
    tm local{};
    return local_from(time(nullptr), &local) ? static_cast<int32_t>(local.tm_gmtoff / 60) : 0;
}

void tova_time_local(tova_time* t)
{
    tova_assert(t);
    memset(t, 0, sizeof *t);
    timeval now;
    gettimeofday(&now, nullptr);
    tova::time_local_from(now.tv_sec, t);
    // Deliberate: minutes west of Greenwich, the opposite of what the conversion gives, as hosts have always read it.
    // The zone record of gettimeofday is no source for it: on Linux it is always zero, elsewhere it holds only today's
    // offset.
    t->bias = static_cast<int16_t>(-t->bias);
    t->millisecond = static_cast<uint16_t>(now.tv_usec / 1000);
}

void tova_time_gmt(tova_time* t)
{
    tova_assert(t);
    memset(t, 0, sizeof *t);
    timeval now;
    gettimeofday(&now, nullptr);
    tm utc{};
    // Unlike a file's time, now is a moment that the calendar can name.
    tova::time_utc_from(now.tv_sec, &utc);
    tova_time_unix_from_tm(utc, t);
    t->millisecond = static_cast<uint16_t>(now.tv_usec / 1000);
}

namespace {

int32_t header_form(const tova_time* t, char* buffer, int32_t size)
{
    static const char* const days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (size > 0)
        buffer[0] = 0;
    tova_assert(t);
    tova_assert(t->week_day < 7);
    tova_assert(t->month >= 1 && t->month <= 12);
    // Deliberate: the space at the end is part of the form, because callers append the name of the zone.
    return tova_sprintf(buffer, size, "%s, %2.2d %s %4.4d %2.2d:%2.2d:%2.2d ", days[t->week_day], t->day,
                        months[t->month - 1], t->year, t->hour, t->minute, t->second);
}

} // namespace

int32_t tova_time_string(const tova_time* t, int32_t form, char* buffer, int32_t size)
{
    if (form == tova_time_form_header)
        return header_form(t, buffer, size);
    tova_assert(t);
    switch (form) {
    case tova_time_form_full:
        return tova_sprintf(buffer, size, "%d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d.%3.3d", t->year, t->month, t->day, t->hour,
                            t->minute, t->second, t->millisecond);
    case tova_time_form_date:
        return tova_sprintf(buffer, size, "%d-%2.2d-%2.2d", t->year, t->month, t->day);
    case tova_time_form_iso:
        return tova_sprintf(buffer, size, "%d-%2.2d-%2.2dT%2.2d:%2.2d:%2.2d", t->year, t->month, t->day, t->hour,
                            t->minute, t->second);
    default:
        tova_assert(false);
        return 0;
    }
}
