// Standard directories by the XDG conventions; relative values of the variables are ignored, as those require.
#include "lumo/tova/platform/home.h"
#include "lumo/tova/platform/platform.h"

#include <climits>
#include <memory>

namespace tova::platform {

namespace {

struct close_file
{
    void operator()(FILE* file) const { fclose(file); }
};

// An empty or relative value counts as none: it would point somewhere else after every change of folder.
bool from_variable(const char* variable, char* buffer, size_t size)
{
    const char* path = getenv(variable); // NOLINT(concurrency-mt-unsafe): read, never set
    return path && *path == '/' && join(buffer, size, path, "");
}

bool below_home(const char* relative, char* buffer, size_t size)
{
    char home[PATH_MAX];
    return home_directory(home, sizeof home) && join(buffer, size, home, relative);
}

// A line of the user-dirs file: XDG_DOCUMENTS_DIR="$HOME/Documents" or an absolute path; a backslash escapes.
bool documents_from_line(const char* line, char* buffer, size_t size)
{
    static const char key[] = "XDG_DOCUMENTS_DIR=\"";
    line += strspn(line, " \t");
    if (strncmp(line, key, sizeof key - 1) != 0)
        return false;
    line += sizeof key - 1;
    const bool in_home = strncmp(line, "$HOME/", 6) == 0;
    // The slash behind $HOME stays part of the path, so the rest is appended unchanged.
    char path[PATH_MAX];
    size_t length = 0;
    for (line += in_home ? 5 : 0; *line && *line != '"' && length < sizeof path - 1; ++line) {
        if (*line == '\\' && line[1])
            ++line;
        path[length++] = *line;
    }
    path[length] = 0;
    if (in_home)
        return below_home(path, buffer, size);
    return path[0] == '/' && join(buffer, size, path, "");
}

bool documents_from_user_dirs(char* buffer, size_t size)
{
    char folder[PATH_MAX];
    char path[PATH_MAX];
    // The file in which the desktop keeps the names of folders, which depend on the user's language.
    if (!from_variable("XDG_CONFIG_HOME", folder, sizeof folder) && !below_home("/.config", folder, sizeof folder))
        return false;
    if (!join(path, sizeof path, folder, "/user-dirs.dirs"))
        return false;
    const std::unique_ptr<FILE, close_file> file(fopen(path, "re"));
    char line[PATH_MAX + 64];
    bool found = false;
    // The file is read as a shell would: the last assignment counts.
    while (file && fgets(line, sizeof line, file.get()))
        found = documents_from_line(line, buffer, size) || found;
    return found;
}

} // namespace

bool temporary_directory(char* buffer, size_t size)
{
    return from_variable("TMPDIR", buffer, size) || join(buffer, size, "/tmp", "");
}

bool process_directory(char* buffer, size_t size)
{
    char path[PATH_MAX];
    // The link points to the file that runs, whatever name it was started by.
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0)
        return false;
    path[length] = 0;
    char* slash = strrchr(path, '/');
    if (!slash)
        return false;
    // The directory of a program in the root directory is "/", not the empty path.
    slash[slash == path ? 1 : 0] = 0;
    return join(buffer, size, path, "");
}

bool documents_directory(char* buffer, size_t size)
{
    return documents_from_user_dirs(buffer, size) || below_home("/Documents", buffer, size);
}

bool application_support_directory(char* buffer, size_t size)
{
    return from_variable("XDG_DATA_HOME", buffer, size) || below_home("/.local/share", buffer, size);
}

} // namespace tova::platform
