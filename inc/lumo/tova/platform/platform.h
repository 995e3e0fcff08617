/// The contract between the portability layer and an operating system: what POSIX leaves open, and nothing else.
///
/// One folder beside this file fills it per system; CMake chooses the folder. Not installed.
#ifndef LUMO_TOVA_PLATFORM_PLATFORM_H
#define LUMO_TOVA_PLATFORM_PLATFORM_H

#include <cstddef>
#include <cstdint>

namespace tova::platform {

/// Nanoseconds of a clock tick: numerator / denominator.
struct time_base
{
    uint32_t numerator;
    uint32_t denominator;
};

time_base clock_time_base();

/// Ticks of the monotonic clock.
uint64_t clock_ticks();

/// The system's number of the calling thread.
uint32_t thread_number();

/// Standard directories: each writes a terminated path and says whether there is one that fits.
bool temporary_directory(char* buffer, size_t size);
bool process_directory(char* buffer, size_t size);
bool documents_directory(char* buffer, size_t size);
bool application_support_directory(char* buffer, size_t size);

/// Says that all of this memory will be written soon, so that the system may hand it out in large pieces. A wish: no
/// result.
void expect_large_use(void* memory, size_t size);

/// As socket(), but closed in programs that the host starts, from the first moment on where the system can do that.
int open_socket(int family, int type, int protocol);

} // namespace tova::platform

#endif
