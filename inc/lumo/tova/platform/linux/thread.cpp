#include "lumo/tova/platform/platform.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace tova::platform {

uint32_t thread_number()
{
    return static_cast<uint32_t>(syscall(SYS_gettid));
}

} // namespace tova::platform
