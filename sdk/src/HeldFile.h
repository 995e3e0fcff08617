// A file that stays open and locked across calls, in a process that may fork and whose host may close any descriptor.
//
// An advisory lock of flock(2) belongs to the open file, which a forked child shares with its parent: as long as the
// child keeps its copy, the lock does not end with the parent. So all held files are listed, and a child closes its
// copies right after the fork; its HeldFile objects are then closed.
#pragma once

#include <string>

#include <sys/stat.h>
#include <sys/types.h>

namespace AnalyticsSDK {

/// One held file. Used by one thread at a time, or under the log's lock; opening and closing take that lock.
class HeldFile
{
public:
    HeldFile() = default;
    HeldFile(const HeldFile&) = delete;
    HeldFile& operator=(const HeldFile&) = delete;
    ~HeldFile() { Close(); }

    /// Opens close-on-exec, without following a link and without waiting for a pipe's other end; closes the file held
    /// before. False with errno when it cannot be opened.
    bool Open(const std::string& path, int flags, mode_t mode = 0666);
    /// Releases the lock, then closes the file.
    void Close();
    explicit operator bool() const { return m_file != -1; }
    int Get() const { return m_file; }

    /// Lets IsStillHeld() be cheap. For a file that is used under the log's lock only.
    void Mark();
    /// Whether the descriptor still belongs to this file; false, and only forgotten, as with Look().
    bool IsStillHeld();
    /// The file's present status (but not its times). False when the descriptor now belongs to another file, because
    /// the host closed a number that it never opened. It is then neither unlocked nor closed, only forgotten.
    bool Look(struct stat& now);

    enum class Lock
    {
        held,
        refused,    ///< another process or handle holds it
        unsupported ///< this file system has no locks: the caller goes on without one
    };
    /// Asks for the exclusive lock, without waiting.
    Lock TryLock();
    /// The same, repeated for `wait_ms`; refused at once when the path does not lead to this file any more, as whoever
    /// sealed it may hold the lock for as long as a request takes. Not to be called under the log's lock, so that other
    /// threads can go on logging.
    Lock WaitForLock(int wait_ms, const std::string& path);
    void Unlock();
    /// Whether the path still leads to this file: between open and lock another process may have renamed or replaced
    /// it.
    bool IsAt(const std::string& path) const;

    bool ReadAt(off_t offset, char* buffer, size_t size) const;

private:
    friend void CloseHeldFilesInChild();
    bool IsOurs(const struct stat& now) const { return now.st_dev == m_device && now.st_ino == m_inode; }
    void Unlist();

    int m_file = -1;
    dev_t m_device = 0;
    ino_t m_inode = 0;
    bool m_marked = false;
    HeldFile* m_next = nullptr; ///< the list of all held files, guarded by the log's lock
    HeldFile** m_link = nullptr;
};

/// A file without write permission is sealed.
inline bool IsSealed(const struct stat& file)
{
    return (file.st_mode & 0222) == 0;
}

} // namespace AnalyticsSDK
