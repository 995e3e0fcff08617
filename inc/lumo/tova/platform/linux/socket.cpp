#include "lumo/tova/platform/platform.h"

#include <sys/socket.h>

namespace tova::platform {

int open_socket(int family, int type, int protocol)
{
    return socket(family, type | SOCK_CLOEXEC, protocol);
}

} // namespace tova::platform
