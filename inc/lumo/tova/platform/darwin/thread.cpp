#include "lumo/tova/platform/platform.h"

#include <pthread.h>

namespace tova::platform {

// The kernel's number of a thread is its Mach port.
uint32_t thread_number()
{
    return pthread_mach_thread_np(pthread_self());
}

} // namespace tova::platform
