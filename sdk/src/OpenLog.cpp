#include "OpenLog.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "FileDescriptor.h"
#include "LogLock.h"
#include "lumo/tova/platform/platform.h"

namespace AnalyticsSDK {

using Clock = std::chrono::steady_clock;

namespace {

// Of the 100 ms that an append may take; the rest is for writing the line to a file of its own.
constexpr auto patience = std::chrono::milliseconds(90);
constexpr int quick_tries = 4;
constexpr auto rest = std::chrono::microseconds(50);

} // namespace

OpenLog::Written OpenLog::Append(std::string_view line)
{
    Clock::time_point start{};
    for (int tries = 1;; ++tries) {
        Step step;
        bool sealed, waits;
        {
            LogLock hold;
            step = TryAppend(line);
            sealed = m_sealed;
            // The first rounds read no clock and are usually enough: one finds the file sealed, one opens the next.
            waits = step == Step::again && (tries < quick_tries || (!m_wasStuck && Clock::now() - start < patience));
            if (!waits) {
                m_wasStuck = step == Step::again;
                m_sealed = false;
            }
        }
        if (step == Step::written)
            return sealed ? Written::andSealed : Written::yes;
        if (step == Step::failed)
            return Written::no;
        if (!waits) // the line becomes a batch of its own
            return WriteAside(line) ? Written::andSealed : Written::no;
        if (tries == 1)
            start = Clock::now();
        else
            std::this_thread::sleep_for(rest);
    }
}

// Whether the handle is still the file to write to. It is not when it has no link any more or is sealed, whichever
// process did that; and what a host has put in its place must not be changed.
bool OpenLog::LooksOpen(struct stat& now)
{
    return m_file.Look(now) && now.st_nlink > 0 && !IsSealed(now);
}

OpenLog::Step OpenLog::TryAppend(std::string_view line)
{
    struct stat now;
    if (!m_file) {
        if (const Step step = OpenAnew(); step != Step::written)
            return step;
    }
    if (!m_file.IsStillHeld()) // a file of the host's must not even be locked
        return Step::again;
    // Refused or not, it may have been sealed: then the lock is held for as long as the batch is sent.
    const HeldFile::Lock lock = m_file.TryLock();
    if (!LooksOpen(now)) {
        m_file.Close();
        return Step::again;
    }
    if (lock == HeldFile::Lock::refused)
        return Step::again;
    const Step step = WriteLocked(line, now);
    if (m_file && lock == HeldFile::Lock::held)
        m_file.Unlock();
    return step;
}

// Returns `written` when there is a file to write to.
OpenLog::Step OpenLog::OpenAnew()
{
    struct stat log;
    if (m_outbox.Log().empty() || (::stat(m_outbox.Log().c_str(), &log) == 0 && !S_ISREG(log.st_mode)))
        return Step::failed;
    const std::string path = m_outbox.OpenPath();
    constexpr int append = O_APPEND | O_CREAT;
    m_end = -1;
    if (!m_file.Open(path, O_RDWR | append) && errno == EACCES)
        m_file.Open(path, O_WRONLY | append);
    if (!m_file) {
        if (errno != EACCES)
            return Step::aside;
        m_outbox.SealOpen(0); // sealed, and the process that sealed it may have died before the rename
        return Step::again;
    }
    struct stat now;
    if (!m_file.Look(now) || !S_ISREG(now.st_mode)) {
        m_file.Close();
        return Step::aside;
    }
    if (!IsSealed(now)) {
        m_file.Mark();
        return Step::written;
    }
    m_file.Close(); // root can open a sealed file
    m_outbox.SealOpen(0);
    return Step::again;
}

// A byte that cannot be read counts as a line feed.
bool OpenLog::EndsInMidLine(off_t end) const
{
    char last = '\n';
    return end > 0 && end != m_end && m_file.ReadAt(end - 1, &last, 1) && last != '\n';
}

OpenLog::Step OpenLog::WriteLocked(std::string_view line, const struct stat& now)
{
    const off_t end = now.st_size;
    const bool mid_line = EndsInMidLine(end);
    const auto size = static_cast<off_t>(line.size() + mid_line);
    if (m_maySeal && end > 0 && end + size > m_options[Option::batch_bytes] && now.st_uid == ::geteuid()) {
        if (!m_file.IsAt(m_outbox.OpenPath())) { // moved away: the path leads to another file or none
            m_file.Close();
            return Step::again;
        }
        m_maySeal = SealHeld(m_file, now, m_outbox.OpenPath(), m_outbox.Log());
        if (m_maySeal) {
            m_sealed = true;
            m_file.Close();
            return Step::again;
        }
    }
    const std::string closing = mid_line ? std::string("\n").append(line) : std::string();
    const std::string_view text = mid_line ? closing : line;
    const ssize_t written =
        tova::uninterrupted([&] { return tova::platform::write_file(m_file.Get(), text.data(), text.size()); });
    if (written != size) {
        if (written > 0) // no other process has written since, because the lock is held
            static_cast<void>(tova::uninterrupted([&] { return ::ftruncate(m_file.Get(), end); }));
        return Step::failed;
    }
    m_end = end + size;
    if (m_options.Is(Option::sync, Choice::sync_event))
        static_cast<void>(tova::uninterrupted([this] { return ::fsync(m_file.Get()); }));
    return Step::written;
}

bool OpenLog::WriteAside(std::string_view line) const
{
    const std::string id = BatchName::NewId();
    return !m_outbox.Log().empty() && !id.empty() &&
           Batch::Make(m_outbox.Log(), {id, 0}, BatchKind::batch, line, m_options[Option::sync] != 0);
}

void OpenLog::Refresh()
{
    LogLock hold;
    m_maySeal = true;
    m_wasStuck = false;
    if (m_file && !m_file.IsAt(m_outbox.OpenPath()))
        m_file.Close();
}

} // namespace AnalyticsSDK
