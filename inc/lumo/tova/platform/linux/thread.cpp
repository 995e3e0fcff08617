#include "lumo/tova/platform/platform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tova::platform {

// The kernel's thread id, which tools show; pthread_self is a pointer and would not fit. By system call, since older C
// libraries have no function for it.
uint32_t thread_number()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

} // namespace tova::platform
