// A file that stays open and locked across calls, in a process that may fork and whose host may close any number.
//
// An advisory lock of flock(2) belongs to the open file, which a forked child shares with its parent: while the child
// keeps its copy the lock does not end with the parent. So every file that is held here is listed, and a child closes
// its copies as it is born; the objects there are then closed ones.
#ifndef ANALYTICSSDK_HELDFILE_H
#define ANALYTICSSDK_HELDFILE_H

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

    /// Opens close-on-exec, without following a link and without waiting for a pipe's other end; closes what was held.
    /// False with errno when it cannot be opened.
    bool Open(const std::string& path, int flags, mode_t mode = 0666);
    /// Gives up the lock, then the file.
    void Close();
    explicit operator bool() const { return m_file != -1; }
    int Get() const { return m_file; }

    /// What the file is now. False when it is no longer ours: a host that closes numbers which it never opened has
    /// given this one to something else. Then it is neither unlocked nor closed, only forgotten.
    bool Look(struct stat& now);

    enum class Lock
    {
        held,
        refused,    ///< somebody else holds it
        unsupported ///< this file system has no locks: the caller goes on without one
    };
    /// Asks for the exclusive lock, without waiting.
    Lock TryLock();
    /// The same, again and again for `wait_ms`. Not under the log's lock: other threads go on logging.
    Lock WaitForLock(int wait_ms);
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
    HeldFile* m_next = nullptr; ///< the list of all held files, guarded by the log's lock
    HeldFile** m_link = nullptr;
};

/// Write permission for nobody: how a file says that it is sealed.
inline bool IsSealed(const struct stat& file)
{
    return (file.st_mode & 0222) == 0;
}

} // namespace AnalyticsSDK

#endif
