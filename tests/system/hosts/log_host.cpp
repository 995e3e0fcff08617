// FOLDER PROGRESS FIRST [LAST]: logs events numbered from FIRST on, until LAST or until it is killed. The number of the
// last event whose analytics_event_end returned stands in the file PROGRESS, which is shared memory ("-": nowhere).

#include "host.h"

#include <atomic>
#include <fcntl.h>
#include <sys/mman.h>

static std::atomic<long>* shared_number(const char* path)
{
    static std::atomic<long> nowhere;
    if (strcmp(path, "-") == 0)
        return &nowhere;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    void* memory = mmap(nullptr, sizeof(std::atomic<long>), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    host::require(memory != MAP_FAILED, "shared memory");
    return static_cast<std::atomic<long>*>(memory);
}

int main(int count, char** arguments)
{
    host::require(count >= 4, "FOLDER PROGRESS FIRST [LAST]");
    std::atomic<long>* progress = shared_number(arguments[2]);
    analytics_session* session = host::open(arguments[1], "http://127.0.0.1:9/");
    const long last = count > 4 ? atol(arguments[4]) : -1;
    for (long number = atol(arguments[3]); number != last + 1; ++number) {
        host::log_numbered(session, number, host::filling(number));
        *progress = number;
    }
    analytics_shutdown(session);
    return 0;
}
