// Start-up is a flag, not a count, and it is not guarded: it runs while the library is loaded. The flag is atomic all
// the same, because every reading of the clock tests it, on any thread.
#include "lumo/tova/runtime.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/platform/platform.h"
#include "lumo/tova/text.h"

#include <cstdarg>

// What start-up leaves behind. Plain variables: they are written before other threads exist and only read after.
tova_mutex g_increment_mutex;
tova_mutex g_decrement_mutex;
uint64_t g_resolution;
uint64_t g_resolution_ms;
uint64_t g_resolution_us;
double g_resolution_us_double;
double g_resolution_ns_double;

namespace {

std::atomic<int32_t> m_initialized;
// Atomic, because a host may register while a worker logs.
std::atomic<tova_log_callback> g_callback;

} // namespace

namespace tova {

std::atomic<int32_t> living_threads;

void set_resolution(uint64_t per_second)
{
    g_resolution = per_second;
    g_resolution_ms = per_second / 1'000;
    g_resolution_us = per_second / 1'000'000;
    // Holds ticks per second until both doubles have been derived from it.
    g_resolution_ns_double = static_cast<double>(per_second);
    g_resolution_us_double = g_resolution_ns_double / 1'000'000.0;
    g_resolution_ns_double /= 1'000'000'000.0;
}

} // namespace tova

void tova_initialize(void)
{
    if (m_initialized.load(std::memory_order_acquire))
        return;
    const tova::platform::time_base base = tova::platform::clock_time_base();
    tova::set_resolution(tova::ticks_per_second(base.numerator, base.denominator));
    tova_mutex_create_fast(&g_increment_mutex);
    tova_mutex_create_fast(&g_decrement_mutex);
    // Last, so that a thread that sees the flag finds the scales and the mutexes ready.
    m_initialized.store(1, std::memory_order_release);
}

// The scales of the clock are kept: static destructors of the host that still convert a duration would abort without
// them.
void tova_shutdown(void)
{
    if (!m_initialized.load(std::memory_order_acquire))
        return;
    tova_mutex_destroy(&g_increment_mutex);
    tova_mutex_destroy(&g_decrement_mutex);
    m_initialized.store(0, std::memory_order_release);
}

void tova_log_register(tova_log_callback callback)
{
    g_callback.store(callback);
}

void tova_log(int32_t level, const char* format, ...)
{
    // Read once: another thread may remove the callback between the test and the call.
    const tova_log_callback callback = g_callback.load();
    if (!callback)
        return;
    // A message that does not fit arrives empty; the header says why.
    char message[512];
    va_list arguments;
    va_start(arguments, format);
    tova_vsprintf(message, sizeof message, format, arguments);
    va_end(arguments);
    callback(level, message);
}

namespace {

// Loading the library starts the runtime. When a host exits while workers run, the runtime stays up for them.
struct module_lifetime
{
    module_lifetime() { tova_initialize(); }
    ~module_lifetime()
    {
        if (tova::living_threads.load() == 0)
            tova_shutdown();
    }
} lifetime TOVA_BEFORE_THE_HOST;

} // namespace
