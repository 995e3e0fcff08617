#include "UniqueIdFile.h"

#include <cstring>

#include <sys/stat.h>

#include "AnalyticsSDK/Utilities.h"
#include "FileDescriptor.h"
#include "lumo/tova/thread.h"

namespace AnalyticsSDK::UniqueIdFile {
namespace {

constexpr int create_new = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;

bool WriteAll(const FileDescriptor& file, const std::string& text)
{
    // Synced before the file gets its name: otherwise a power cut could leave an empty file, which would never be
    // replaced.
    return file && file.Write(text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           tova::uninterrupted([&] { return ::fsync(file.Get()); }) == 0;
}

/// Makes a file beside `path` that holds the id; empty, and errno tells why, when that cannot be done.
std::string WriteNeighbour(const std::string& path, const std::string& id)
{
    // Bounded: a folder full of such files is an error or an attack, and the id is then kept in memory only.
    for (int number = 0; number < 100; ++number) {
        std::string name = path + '.' + std::to_string(tova_process_id()) + '.' + std::to_string(number);
        const FileDescriptor file(name.c_str(), create_new);
        if (WriteAll(file, id))
            return name;
        if (file)
            ::unlink(name.c_str());
        if (file || errno != EEXIST) // an existing one was left by a process of this number that died
            break;
    }
    return {};
}

/// For file systems without hard links, and names too long for a temporary file beside them. It never replaces a file
/// either, but a crash in between leaves an empty one.
bool WriteInPlace(const std::string& path, const std::string& id)
{
    const FileDescriptor file(path.c_str(), create_new);
    if (!file)
        return false;
    if (WriteAll(file, id))
        return true;
    ::unlink(path.c_str());
    return false;
}

/// Reads up to the first NUL, the end, or the bound, which no id reaches: a damaged file can have any size, and the id
/// is part of every line.
bool ReadId(const FileDescriptor& file, std::string& id)
{
    constexpr size_t most_bytes = 64 * 1024;
    char piece[4096];
    while (id.size() < most_bytes) {
        const ssize_t got = file.Read(piece, sizeof piece);
        if (got <= 0)
            return got == 0 && !id.empty(); // an empty file holds no id, not even an empty one
        const size_t length = strnlen(piece, static_cast<size_t>(got));
        id.append(piece, length);
        if (length < static_cast<size_t>(got))
            break;
    }
    return true;
}

} // namespace

bool Load(const std::string& path, std::string& id)
{
    // Regular files only: opening a pipe would wait for its writer.
    if (!CheckFileExists(path.c_str()))
        return false;
    const FileDescriptor file(path.c_str(), O_RDONLY);
    std::string text;
    if (!file || !ReadId(file, text))
        return false;
    // Assigned only when it differs, because a worker may read the id at the same time.
    if (id != text)
        id = text;
    return true;
}

bool Create(const std::string& path, const std::string& id)
{
    // Without random bytes there is no id, and an empty file would prevent a later start from saving one.
    if (path.empty() || id.empty() || CheckFileExists(path.c_str()))
        return false;
    const std::string neighbour = WriteNeighbour(path, id);
    if (neighbour.empty())
        return errno == ENAMETOOLONG && WriteInPlace(path, id);
    // Linked, not renamed: a rename would replace the id that another start of the host has made meanwhile.
    const bool made = ::link(neighbour.c_str(), path.c_str()) == 0;
    const bool taken = !made && errno == EEXIST;
    ::unlink(neighbour.c_str());
    return made || (!taken && WriteInPlace(path, id));
}

bool Delete(const std::string& path)
{
    struct stat file;
    if (::lstat(path.c_str(), &file) != 0 || !(S_ISREG(file.st_mode) || S_ISLNK(file.st_mode)))
        return true;
    return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

} // namespace AnalyticsSDK::UniqueIdFile
