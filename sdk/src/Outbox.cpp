#include "Outbox.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "LogLock.h"

namespace AnalyticsSDK {
namespace {

constexpr size_t most_dropped = 1000;
constexpr int64_t year2020_ms = 1'577'836'800'000;

bool IsOwnFile(const struct stat& file)
{
    return S_ISREG(file.st_mode) && file.st_uid == ::geteuid();
}

int64_t Now_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

// A batch must not be lost because the clock was wrong when it was sealed.
bool IsOlder(const BatchName& name, int64_t age_ms)
{
    const int64_t sealed = name.SealedAt_ms(), now = Now_ms();
    return sealed >= year2020_ms && sealed <= now && now - sealed > age_ms;
}

bool Remove(const std::string& path)
{
    return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

struct CloseFolder
{
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// Opens, locks and seals. A file that is not there, or not any more, counts as done.
bool Seal(const std::string& path, const std::string& log, int wait_ms, bool (*wanted)(const struct stat&))
{
    HeldFile file;
    struct stat now;
    if (!file.Open(path, O_RDONLY) && errno == EACCES)
        file.Open(path, O_WRONLY); // writable but not readable: it can be sealed all the same
    if (!file)
        return errno == ENOENT || errno == ENOTDIR;
    if (!file.Look(now) || !S_ISREG(now.st_mode) || !wanted(now))
        return true;
    if (now.st_uid != ::geteuid())
        return false;
    const HeldFile::Lock lock = file.WaitForLock(wait_ms, path);
    if (!file.IsAt(path)) // another thread or process has sealed it meanwhile
        return true;
    return lock != HeldFile::Lock::refused && file.Look(now) && (!wanted(now) || SealHeld(file, now, path, log));
}

} // namespace

bool SealHeld(const HeldFile& file, const struct stat& now, const std::string& path, const std::string& log)
{
    const std::string id = BatchName::NewId();
    const bool was_sealed = IsSealed(now);
    // Readable by its owner in any case, who could not send it otherwise.
    const mode_t sealed = (now.st_mode & 0555) | S_IRUSR;
    if (id.empty() || ((now.st_mode & 07777) != sealed && ::fchmod(file.Get(), sealed) != 0))
        return false;
    if (std::rename(path.c_str(), FileOf(log, {id, 0}, BatchKind::batch).c_str()) == 0)
        return true;
    static_cast<void>(::fchmod(file.Get(), was_sealed ? now.st_mode | S_IWUSR : now.st_mode & 07777));
    return false;
}

uint64_t OutboxContents::Bytes() const
{
    uint64_t bytes = openBytes;
    for (const Waiting& batch : batches)
        bytes += batch.bytes;
    return bytes;
}

Outbox::Outbox(std::string log) : m_log(std::move(log))
{
    const size_t slash = m_log.rfind('/');
    m_folder = slash == m_log.npos ? "." : m_log.substr(0, slash + 1);
    m_name = slash == m_log.npos ? m_log : m_log.substr(slash + 1);
}

struct Outbox::Found
{
    OutboxContents contents;
    std::vector<std::string> temporaries;
};

Outbox::Found Outbox::List() const
{
    Found found;
    struct stat file;
    if (::lstat(OpenPath().c_str(), &file) == 0 && S_ISREG(file.st_mode))
        found.contents.openBytes = static_cast<uint64_t>(file.st_size);
    const std::unique_ptr<DIR, CloseFolder> folder(::opendir(m_folder.c_str()));
    // NOLINTNEXTLINE(concurrency-mt-unsafe): a stream of its own
    while (const dirent* entry = folder ? ::readdir(folder.get()) : nullptr) {
        auto name = ReadFileName(entry->d_name, m_name);
        if (!name || ::fstatat(::dirfd(folder.get()), entry->d_name, &file, AT_SYMLINK_NOFOLLOW) != 0 ||
            !IsOwnFile(file))
            continue;
        if (name->second == BatchKind::batch)
            found.contents.batches.push_back({std::move(name->first), static_cast<uint64_t>(file.st_size)});
        else if (name->second == BatchKind::dropped)
            found.contents.dropped.push_back(std::move(name->first));
        else
            found.temporaries.push_back(FileOf(m_log, name->first, BatchKind::temporary));
    }
    std::sort(found.contents.dropped.begin(), found.contents.dropped.end());
    std::sort(found.contents.batches.begin(), found.contents.batches.end(),
              [](const auto& one, const auto& other) { return one.name < other.name; });
    return found;
}

OutboxContents Outbox::Scan() const
{
    return List().contents;
}

OutboxContents Outbox::Tidy() const
{
    Found found = List();
    for (const std::string& path : found.temporaries)
        RemoveAbandoned(path);
    std::vector<BatchName>& dropped = found.contents.dropped;
    std::erase_if(dropped, [this](const BatchName& name) {
        std::unique_ptr<Batch> number;
        return Batch::Claim(m_log, name, BatchKind::dropped, 0, number) == Batch::Claimed::yes &&
               !number->DroppedLines() && number->Delete();
    });
    std::erase_if(found.contents.batches, [&](const OutboxContents::Waiting& waiting) {
        std::unique_ptr<Batch> batch;
        const bool is_dropped = std::binary_search(dropped.begin(), dropped.end(), waiting.name);
        if (waiting.bytes != 0 && !is_dropped)
            return false;
        if (Batch::Claim(m_log, waiting.name, BatchKind::batch, 0, batch) == Batch::Claimed::yes)
            batch->Delete();
        return true; // never sent either way
    });
    return std::move(found.contents);
}

// The file that is written to goes first: what another session seals or splits meanwhile is found in the next round.
bool Outbox::DeleteAll() const
{
    for (int rounds = 0; rounds < 3; ++rounds) {
        struct stat file;
        bool removed = ::lstat(OpenPath().c_str(), &file) != 0 || !S_ISREG(file.st_mode) || Remove(OpenPath());
        const Found found = List();
        for (const auto& batch : found.contents.batches)
            removed = Remove(FileOf(m_log, batch.name, BatchKind::batch)) && removed;
        for (const BatchName& name : found.contents.dropped)
            removed = Remove(FileOf(m_log, name, BatchKind::dropped)) && removed;
        for (const std::string& path : found.temporaries)
            removed = Remove(path) && removed;
        if (found.contents.batches.empty() && found.contents.dropped.empty() && found.temporaries.empty())
            return removed;
    }
    return false;
}

// An empty file that is sealed already must be renamed too: it cannot be written to any more.
bool Outbox::SealOpen(int wait_ms) const
{
    return Seal(OpenPath(), m_log, wait_ms, [](const struct stat& file) { return file.st_size > 0 || IsSealed(file); });
}

// Under the log's lock, so that no session of this process in the default mode writes to it meanwhile.
void Outbox::TakeOver() const
{
    LogLock hold;
    Seal(m_log, m_log, 0, [](const struct stat& file) { return file.st_size > 0; });
}

void Outbox::Sync(const OutboxContents& contents, int64_t since_ms) const
{
    for (const auto& waiting : contents.batches) {
        HeldFile file;
        if (waiting.name.SealedAt_ms() >= since_ms &&
            file.Open(FileOf(m_log, waiting.name, BatchKind::batch), O_RDONLY))
            ::fsync(file.Get());
    }
}

// A `.dropped` file that another process holds is being reported, so it counts too.
bool Outbox::IsDropped(const BatchName& name) const
{
    std::unique_ptr<Batch> number;
    const Batch::Claimed claimed = Batch::Claim(m_log, name, BatchKind::dropped, 0, number);
    return claimed == Batch::Claimed::busy || (number && number->DroppedLines());
}

void Outbox::KeepLimits(OutboxContents& contents, const OutboxLimits& limits,
                        const std::function<void(uint64_t)>& lost) const
{
    uint64_t bytes = contents.Bytes();
    size_t told = contents.dropped.size();
    std::erase_if(contents.batches, [&](const OutboxContents::Waiting& waiting) {
        std::unique_ptr<Batch> batch;
        if ((bytes <= limits.bytes && !IsOlder(waiting.name, limits.age_ms)) ||
            Batch::Claim(m_log, waiting.name, BatchKind::batch, 0, batch) != Batch::Claimed::yes)
            return false;
        const auto lines = batch->Drop(told < most_dropped);
        if (!lines)
            return false;
        bytes -= std::min(bytes, waiting.bytes);
        if (told<most_dropped&& * lines> 0) {
            ++told;
            contents.dropped.push_back(waiting.name);
        }
        lost(*lines);
        return true;
    });
    std::sort(contents.dropped.begin(), contents.dropped.end());
}

} // namespace AnalyticsSDK
