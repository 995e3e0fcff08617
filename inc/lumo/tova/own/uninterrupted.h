// System calls repeated after signals. Not installed.
#pragma once

#include <cerrno>

namespace tova {

/// Repeats a system call that answers -1 for as long as a signal interrupts it (EINTR): a host may install handlers
/// without SA_RESTART and use fast timers. Never for close(), whose descriptor is gone even then.
template <class Call>
auto uninterrupted(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

} // namespace tova
