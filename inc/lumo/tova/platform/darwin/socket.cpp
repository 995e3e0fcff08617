#include "lumo/tova/platform/platform.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tova::platform {

// This system's socket() has no flag for it: a program that starts between the two calls inherits the socket.
int open_socket(int family, int type, int protocol)
{
    const int made = socket(family, type, protocol);
    if (made != -1 && fcntl(made, F_SETFD, FD_CLOEXEC) == -1) {
        close(made);
        return -1;
    }
    return made;
}

} // namespace tova::platform
