#include "HeldFile.h"

#include <chrono>
#include <thread>

#include <pthread.h>
#include <sys/file.h>

#include "FileDescriptor.h"
#include "LogLock.h"
#include "lumo/tova/platform/platform.h"

namespace AnalyticsSDK {

namespace {

HeldFile* heldFiles = nullptr; // guarded by the log's lock, which is held during every fork

} // namespace

// Runs in the child, which has only this thread. It does not unlock: the lock is shared with the parent.
void CloseHeldFilesInChild()
{
    for (HeldFile* file = heldFiles; file != nullptr; file = file->m_next) {
        struct stat now;
        if (tova::platform::file_status(file->m_file, now) && file->IsOurs(now))
            ::close(file->m_file);
        file->m_file = -1;
    }
    heldFiles = nullptr;
}

namespace {

[[maybe_unused]] const int fork_handler = pthread_atfork(nullptr, nullptr, CloseHeldFilesInChild);

} // namespace

bool HeldFile::Open(const std::string& path, int flags, mode_t mode)
{
    Close();
    LogLock hold;
    const int file =
        tova::uninterrupted([&] { return ::open(path.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode); });
    struct stat now;
    if (file == -1)
        return false;
    if (!tova::platform::file_status(file, now)) {
        ::close(file);
        return false;
    }
    m_file = file;
    m_device = now.st_dev;
    m_inode = now.st_ino;
    m_next = heldFiles;
    m_link = &heldFiles;
    if (m_next != nullptr)
        m_next->m_link = &m_next;
    heldFiles = this;
    return true;
}

void HeldFile::Unlist()
{
    *m_link = m_next;
    if (m_next != nullptr)
        m_next->m_link = m_link;
    m_file = -1;
    m_marked = false;
}

// A marked file that had the same number was closed by the host: with that number it would take this one for its own.
void HeldFile::Mark()
{
    LogLock hold;
    for (HeldFile* file = heldFiles; file != nullptr; file = file->m_next)
        if (file != this && file->m_marked && file->m_file == m_file) {
            file->Unlist();
            break;
        }
    m_marked = tova::platform::mark_file(m_file);
}

bool HeldFile::IsStillHeld()
{
    struct stat now;
    if (!m_marked)
        return Look(now);
    if (tova::platform::has_mark(m_file))
        return true;
    LogLock hold;
    Unlist();
    return false;
}

// Unlocked before closing: a child that fork() is just making may have a copy of the descriptor for a moment, and with
// it the lock.
void HeldFile::Close()
{
    LogLock hold;
    struct stat now;
    if (m_file == -1 || !Look(now))
        return;
    Unlock();
    const int file = m_file;
    Unlist();
    ::close(file);
}

bool HeldFile::Look(struct stat& now)
{
    if (tova::platform::file_status(m_file, now) && IsOurs(now))
        return true;
    LogLock hold;
    Unlist();
    return false;
}

HeldFile::Lock HeldFile::TryLock()
{
    if (tova::uninterrupted([this] { return ::flock(m_file, LOCK_EX | LOCK_NB); }) == 0)
        return Lock::held;
    return errno == EWOULDBLOCK ? Lock::refused : Lock::unsupported;
}

HeldFile::Lock HeldFile::WaitForLock(int wait_ms, const std::string& path)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(wait_ms);
    for (;;) {
        const Lock lock = TryLock();
        if (lock != Lock::refused || std::chrono::steady_clock::now() >= end || !IsAt(path))
            return lock;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

void HeldFile::Unlock()
{
    static_cast<void>(tova::uninterrupted([this] { return ::flock(m_file, LOCK_UN); }));
}

bool HeldFile::IsAt(const std::string& path) const
{
    struct stat there;
    return ::lstat(path.c_str(), &there) == 0 && IsOurs(there);
}

bool HeldFile::ReadAt(off_t offset, char* buffer, size_t size) const
{
    while (size > 0) {
        const ssize_t got = tova::uninterrupted([&] { return ::pread(m_file, buffer, size, offset); });
        if (got <= 0)
            return false;
        buffer += got;
        size -= static_cast<size_t>(got);
        offset += got;
    }
    return true;
}

} // namespace AnalyticsSDK
