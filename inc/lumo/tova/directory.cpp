// Directories. The platform knows where the standard ones are; this file decides what happens when a buffer is too
// small.
#include "lumo/tova/directory.h"
#include "lumo/tova/platform/platform.h"
#include "lumo/tova/text.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

// Follows links, as with files: what counts is whether something can be put there.
int32_t tova_directory_exists(const char* path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

int32_t tova_directory_remove(const char* path)
{
    return rmdir(path) == 0;
}

int32_t tova_directory_create(const char* path, const tova_security* security, int32_t recursive)
{
    const mode_t mode = security ? tova_security_get(security) : 0777;
    if (mkdir(path, mode) == 0)
        return 1;
    // A directory that exists already is a failure too, so that a caller can tell that it did not make it.
    if (errno != ENOENT || !recursive)
        return 0;
    // The parent first, by the same function; the parent is the path up to its last slash.
    char parent[1024];
    tova_strcpy(parent, sizeof parent, path);
    char* slash = strrchr(parent, '/');
    if (!slash)
        return 0;
    *slash = 0;
    // Its result does not matter here: another process may have made the parent first.
    tova_directory_create(parent, security, recursive);
    return mkdir(path, mode) == 0;
}

void tova_directory_get(int32_t kind, char* buffer, unsigned size)
{
    // Into a local buffer first, so that the case of a buffer that is too small is handled in one place, below.
    char path[PATH_MAX];
    bool found = false;
    switch (kind) {
    case tova_directory_temporary:
        found = tova::platform::temporary_directory(path, sizeof path);
        break;
    case tova_directory_current:
        // For these two a small buffer gives the empty text instead of an abort, as the system calls below them fail
        // too.
        found = getcwd(path, sizeof path) && strlen(path) < size;
        break;
    case tova_directory_process:
        found = tova::platform::process_directory(path, sizeof path) && strlen(path) < size;
        break;
    case tova_directory_documents:
        found = tova::platform::documents_directory(path, sizeof path);
        break;
    case tova_directory_application_support:
        found = tova::platform::application_support_directory(path, sizeof path);
        break;
    default:
        tova_assert(false);
    }
    if (found)
        tova_strcpy(buffer, size, path);
    // Never left unchanged: a caller that does not check must not take old memory for a path.
    else if (size)
        buffer[0] = 0;
}
