#include "EventLog.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <new>

#include <pthread.h>
#include <sys/stat.h>

#include "FileDescriptor.h"
#include "LogLock.h"
#include "lumo/own/large_text.h"
#include "lumo/tova/own/internal.h"

namespace AnalyticsSDK::EventLog {

constinit LastingMutex lock;

namespace {

[[maybe_unused]] const struct LockStart
{
    LockStart() { new (&lock.mutex) lumo::mutex(lumo::mutex::recursive); }
} lock_start TOVA_BEFORE_THE_HOST;

/// Where the last append of this process left the end of its file: while it is still there, nobody else has written and
/// the file ends with our line feed. Guarded by the lock.
struct
{
    size_t path = 0; ///< hash of the path: with two paths of one hash and file length, only an unfinished line could be
                     ///< overlooked
    off_t end = -1;  ///< -1: not known
} lastAppend;

// Locked around fork(), so that the child gets consistent data, whatever other threads were doing. The child's only
// thread cannot unlock a mutex that the parent's thread locked, so it makes a new one.
void LockBeforeFork() LUMO_NO_THREAD_SAFETY_ANALYSIS
{
    lock.mutex.lock();
}
void UnlockInParent() LUMO_NO_THREAD_SAFETY_ANALYSIS
{
    lock.mutex.unlock();
}
void RenewInChild()
{
    new (&lock.mutex) lumo::mutex(lumo::mutex::recursive);
}
[[maybe_unused]] const int fork_handlers = pthread_atfork(LockBeforeFork, UnlockInParent, RenewInChild);

FileDescriptor OpenForAppend(const std::string& path)
{
    constexpr int append = O_APPEND | O_CREAT | O_NONBLOCK; // a pipe at the path must not make every event wait
    FileDescriptor file(path.c_str(), O_RDWR | append);
    // A file that may be written but not read is allowed too; only its last byte cannot be checked.
    if (!file && errno == EACCES)
        file = FileDescriptor(path.c_str(), O_WRONLY | append);
    return file;
}

// A byte that cannot be read counts as a line feed: otherwise every event would get an empty line before it.
bool LineFeedBefore(const FileDescriptor& file, off_t end)
{
    char last = '\n';
    return tova::uninterrupted([&] { return ::pread(file.Get(), &last, 1, end - 1); }) != 1 || last == '\n';
}

/// Whether the file ends, at `end`, with a line that will never be finished.
///
/// It may only look so while another process's write is in progress, since the system lets the file grow page by page.
/// Setting the file's times, which the append does anyway, waits for that write, and then the end has moved.
bool EndsInMidLine(const FileDescriptor& file, size_t path, off_t end)
{
    if (end == lastAppend.end && path == lastAppend.path)
        return false;
    while (end > 0 && !LineFeedBefore(file, end)) {
        ::futimens(file.Get(), nullptr);
        const off_t now = ::lseek(file.Get(), 0, SEEK_END);
        if (now == end)
            return true;
        end = now;
    }
    return false;
}

/// Removes a line that was written in part, unless others have appended since: then the next append puts a line feed
/// behind it.
void TakeBack(const FileDescriptor& file, off_t written)
{
    struct stat now;
    const off_t end = ::lseek(file.Get(), 0, SEEK_CUR);
    if (end >= written && ::fstat(file.Get(), &now) == 0 && now.st_size == end)
        static_cast<void>(tova::uninterrupted([&] { return ::ftruncate(file.Get(), end - written); }));
}

// Never a second write for the rest of a line: another process's line could be in between by then.
bool WriteWhole(const FileDescriptor& file, std::string_view line)
{
    const ssize_t written = file.Write(line.data(), line.size());
    if (written > 0 && static_cast<size_t>(written) < line.size())
        TakeBack(file, written);
    return written == static_cast<ssize_t>(line.size());
}

/// Reads `size` bytes to the end of `text`, of which only the part before the first NUL counts.
bool ReadBytes(const FileDescriptor& file, size_t size, std::string& text)
{
    // Read in pieces that stay in the processor's cache, since a string can only be filled by copying.
    char piece[64 * 1024];
    lumo::reserve_large(text, text.size() + size);
    // The bytes behind a NUL are read too: only a file that was read to its end may be deleted later.
    for (bool ended = false; size > 0;) {
        const ssize_t got = file.Read(piece, std::min(size, sizeof piece));
        if (got <= 0)
            return false;
        size -= static_cast<size_t>(got);
        const size_t length = strnlen(piece, static_cast<size_t>(got));
        if (!ended)
            text.append(piece, length);
        ended = ended || length < static_cast<size_t>(got);
    }
    return true;
}

} // namespace

bool Append(const std::string& path, std::string_view line, bool synced)
{
    if (path.empty())
        return false;
    const size_t hash = std::hash<std::string>()(path);
    FileDescriptor file; // closed after the lock is given back
    LogLock hold;
    file = OpenForAppend(path);
    if (!file)
        return false;
    const off_t end = ::lseek(file.Get(), 0, SEEK_END);
    const bool mid_line = EndsInMidLine(file, hash, end);
    const bool written = mid_line ? WriteWhole(file, std::string("\n").append(line)) : WriteWhole(file, line);
    lastAppend.path = hash;
    lastAppend.end = written && end >= 0 ? end + mid_line + static_cast<off_t>(line.size()) : -1;
    if (written && synced)
        static_cast<void>(tova::uninterrupted([&] { return ::fsync(file.Get()); }));
    return written;
}

Content Read(const std::string& path, std::string& text, unsigned long& size)
{
    size = 0;
    text.clear();
    LogLock hold;
    const FileDescriptor file(path.c_str(), O_RDONLY | O_NONBLOCK); // for the same reason as appends
    // Only a file that certainly does not exist counts as none, because the caller may delete the path later.
    if (!file)
        return errno == ENOENT || errno == ENOTDIR ? Content::none : Content::unreadable;
    const off_t end = ::lseek(file.Get(), 0, SEEK_END);
    if (end < 0 || end > static_cast<off_t>(UINT32_MAX) || ::lseek(file.Get(), 0, SEEK_SET) != 0)
        return Content::unreadable;
    if (!ReadBytes(file, static_cast<size_t>(end), text)) {
        text.clear();
        return Content::unreadable;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    size = static_cast<unsigned long>(end);
    return Content::whole;
}

void Delete(const std::string& path)
{
    LogLock hold;
    // A host may log to /dev/null, or name a folder by mistake: neither must be deleted.
    struct stat now;
    if (::lstat(path.c_str(), &now) == 0 && (S_ISREG(now.st_mode) || S_ISLNK(now.st_mode)))
        std::remove(path.c_str());
    lastAppend.end = -1;
}

} // namespace AnalyticsSDK::EventLog
