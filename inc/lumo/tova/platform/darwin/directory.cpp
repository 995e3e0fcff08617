// Standard directories from the C library's own look-ups, which need neither a framework nor an autorelease pool.
#include "lumo/tova/platform/home.h"
#include "lumo/tova/platform/platform.h"

#include <climits>
#include <mach-o/dyld.h>

#if __has_include(<sysdir.h>)
#include <sysdir.h>
#else
// Declared as the system documents it, for cross compilers that come without the header.
extern "C" {
typedef unsigned sysdir_search_path_enumeration_state;
enum sysdir_search_path_directory_t
{
    SYSDIR_DIRECTORY_DOCUMENT = 9,
    SYSDIR_DIRECTORY_APPLICATION_SUPPORT = 14
};
enum sysdir_search_path_domain_mask_t
{
    SYSDIR_DOMAIN_MASK_USER = 1
};
sysdir_search_path_enumeration_state sysdir_start_search_path_enumeration(sysdir_search_path_directory_t directory,
                                                                          sysdir_search_path_domain_mask_t domain);
sysdir_search_path_enumeration_state sysdir_get_next_search_path_enumeration(sysdir_search_path_enumeration_state state,
                                                                             char* path);
}
#endif

namespace tova::platform {

namespace {

// The user's first search path, which begins with a "~" to expand.
bool search_path(sysdir_search_path_directory_t directory, char* buffer, size_t size)
{
    char path[PATH_MAX];
    // The path comes without a promise that the folder exists, as on every system.
    const auto state = sysdir_start_search_path_enumeration(directory, SYSDIR_DOMAIN_MASK_USER);
    if (sysdir_get_next_search_path_enumeration(state, path) == 0)
        return false;
    if (path[0] != '~')
        return join(buffer, size, path, "");
    char home[PATH_MAX];
    return home_directory(home, sizeof home) && join(buffer, size, home, path + 1);
}

// Cuts `path` at its last "/" when the part before ends in `ending`; an empty `ending` fits any.
bool cut_last(char* path, const char* ending)
{
    char* slash = strrchr(path, '/');
    const size_t length = strlen(ending);
    if (!slash || static_cast<size_t>(slash - path) < length || strncmp(slash - length, ending, length) != 0)
        return false;
    *slash = 0;
    return true;
}

} // namespace

bool temporary_directory(char* buffer, size_t size)
{
    // The user's own temporary folder, which others cannot read; /tmp only when there is none.
    const size_t length = confstr(_CS_DARWIN_USER_TEMP_DIR, buffer, size);
    if (length > 0 && length <= size)
        return true;
    return join(buffer, size, "/tmp", "");
}

// The bundle of a bundled program, NAME.app for NAME.app/Contents/MacOS/NAME; the folder of any other.
bool process_directory(char* buffer, size_t size)
{
    char given[PATH_MAX];
    char path[PATH_MAX];
    uint32_t length = sizeof given;
    // The path by which it was started, perhaps through links, so it is resolved before its end is cut.
    if (_NSGetExecutablePath(given, &length) != 0 || !realpath(given, path) || !cut_last(path, ""))
        return false;
    char bundle[PATH_MAX];
    memcpy(bundle, path, sizeof bundle);
    const bool bundled = cut_last(bundle, "/Contents") && cut_last(bundle, "");
    return join(buffer, size, bundled ? bundle : path, "");
}

bool documents_directory(char* buffer, size_t size)
{
    return search_path(SYSDIR_DIRECTORY_DOCUMENT, buffer, size);
}

bool application_support_directory(char* buffer, size_t size)
{
    return search_path(SYSDIR_DIRECTORY_APPLICATION_SUPPORT, buffer, size);
}

} // namespace tova::platform
