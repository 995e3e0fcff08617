#include "lumo/tova/platform/platform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tova::platform {

// The kernel's number, which is what tools show; pthread_self is a pointer and would not fit. By its system call, since
// older C libraries have no function for it.
uint32_t thread_number()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

} // namespace tova::platform
