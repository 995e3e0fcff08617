// The user's home directory, for the systems' files beside this one.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <unistd.h>

namespace tova::platform {

/// Joins two texts into `buffer`; false, and an empty buffer, when they do not fit.
inline bool join(char* buffer, size_t size, const char* first, const char* second)
{
    const int length = snprintf(buffer, size, "%s%s", first, second);
    if (length >= 0 && static_cast<size_t>(length) < size)
        return true;
    if (size)
        buffer[0] = 0;
    return false;
}

/// HOME, else the entry in the user database: a host that the system itself started may lack the variable.
inline bool home_directory(char* buffer, size_t size)
{
    if (const char* home = getenv("HOME"); home && *home) // NOLINT(concurrency-mt-unsafe): read, never set
        return join(buffer, size, home, "");
    // Room for one line of the user database, which holds little more than names and two paths.
    char text[4096];
    passwd record;
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &record, text, sizeof text, &found) != 0 || !found)
        return false;
    return join(buffer, size, found->pw_dir, "");
}

} // namespace tova::platform
