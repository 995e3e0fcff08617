#include "UniqueIdFile.h"

#include <cstdio>

#include "AnalyticsSDK/Utilities.h"
#include "FileDescriptor.h"
#include "lumo/tova/thread.h"

namespace AnalyticsSDK::UniqueIdFile {
namespace {

constexpr int createNew = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;

bool WriteAll(const FileDescriptor& file, const std::string& text)
{
    // To the disk before the file gets its name: an empty id file after a power cut would stay empty for ever.
    return file && file.Write(text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           Uninterrupted([&] { return ::fsync(file.Get()); }) == 0;
}

/// Makes a file beside `path` that holds the id; empty when that cannot be done.
std::string WriteNeighbour(const std::string& path, const std::string& id)
{
    // Bounded, as a folder full of such leftovers is somebody's fault or attack: the id then lives in memory.
    for (int number = 0; number < 100; ++number) {
        std::string name = path + '.' + std::to_string(tova_process_id()) + '.' + std::to_string(number);
        const FileDescriptor file(name.c_str(), createNew);
        if (WriteAll(file, id))
            return name;
        if (file)
            ::unlink(name.c_str());
        if (file || errno != EEXIST) // an existing one was left by a process of this number that died
            break;
    }
    return {};
}

/// For file systems without hard links: never replaces anything either, but a death in between leaves an empty file.
bool WriteInPlace(const std::string& path, const std::string& id)
{
    const FileDescriptor file(path.c_str(), createNew);
    if (!file)
        return false;
    if (WriteAll(file, id))
        return true;
    ::unlink(path.c_str());
    return false;
}

} // namespace

bool Load(const std::string& path, std::string& id)
{
    // Regular files only: opening a pipe would wait for its writer.
    if (!CheckFileExists(path.c_str()))
        return false;
    const FileDescriptor file(path.c_str(), O_RDONLY);
    const off_t size = file ? ::lseek(file.Get(), 0, SEEK_END) : -1;
    if (size <= 0 || ::lseek(file.Get(), 0, SEEK_SET) != 0)
        return false;
    // Filled with NULs, where the id ends: a file that is cut while it is read gives what was left of it.
    std::string text(static_cast<size_t>(size), '\0');
    if (file.Read(text.data(), text.size()) < 0)
        return false;
    text.resize(text.find('\0') == std::string::npos ? text.size() : text.find('\0'));
    // Assigned only when it differs: a worker may look at an empty id while the host does.
    if (id != text)
        id = text;
    return true;
}

bool Create(const std::string& path, const std::string& id)
{
    // Without random bytes there is no id: an empty file would keep later starts, which may have one, from saving it.
    if (path.empty() || id.empty() || CheckFileExists(path.c_str()))
        return false;
    const std::string neighbour = WriteNeighbour(path, id);
    if (neighbour.empty())
        return false;
    // Linked, not renamed: a rename would replace the id that another start of the host has made meanwhile.
    const bool made = ::link(neighbour.c_str(), path.c_str()) == 0;
    const bool taken = !made && errno == EEXIST;
    ::unlink(neighbour.c_str());
    return made || (!taken && WriteInPlace(path, id));
}

} // namespace AnalyticsSDK::UniqueIdFile
