#include "Batch.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "FileDescriptor.h"
#include "Lines.h"
#include "Options.h"
#include "lumo/own/large_text.h"

namespace AnalyticsSDK {
namespace {

constexpr size_t piece_size = 64 * 1024;
constexpr int lock_patience_ms = 100;

bool IsOwnFile(const struct stat& file)
{
    return S_ISREG(file.st_mode) && file.st_uid == ::geteuid();
}

bool WriteAll(const HeldFile& file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = tova::uninterrupted([&] { return ::write(file.Get(), text.data(), text.size()); });
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool ForceOntoDisk(const HeldFile& file)
{
    return tova::uninterrupted([&] { return ::fsync(file.Get()); }) == 0;
}

/// A new file of that name, locked for as long as it is held. Null when that failed.
std::unique_ptr<HeldFile> NewTemporary(const std::string& path)
{
    // Tried again when a scan removed the file between opening and locking, or a process that died left one of this
    // name.
    for (int tries = 0; tries < 3; ++tries) {
        auto file = std::make_unique<HeldFile>();
        if (file->Open(path, O_RDWR | O_CREAT | O_EXCL, 0600)) {
            if (file->WaitForLock(lock_patience_ms, path) != HeldFile::Lock::refused && file->IsAt(path))
                return file;
        } else if (errno == EEXIST)
            RemoveAbandoned(path);
        else
            return nullptr;
    }
    return nullptr;
}

/// Gives a temporary file its permissions and its final name; removes it when that fails.
bool Publish(const HeldFile& file, const std::string& temporary, const std::string& path, mode_t mode, bool synced)
{
    const bool done = ::fchmod(file.Get(), mode & 0444) == 0 && (!synced || ForceOntoDisk(file)) &&
                      std::rename(temporary.c_str(), path.c_str()) == 0;
    if (!done)
        ::unlink(temporary.c_str());
    return done;
}

} // namespace

void RemoveAbandoned(const std::string& path)
{
    HeldFile file;
    struct stat now;
    if (file.Open(path, O_RDONLY) && file.Look(now) && IsOwnFile(now) && file.TryLock() == HeldFile::Lock::held &&
        file.IsAt(path))
        ::unlink(path.c_str());
}

Batch::Batch(const std::string& log, const BatchName& name, BatchKind kind)
    : m_log(log), m_name(name), m_kind(kind), m_path(FileOf(log, name, kind)), m_file(std::make_unique<HeldFile>())
{}

Batch::Claimed Batch::Claim(const std::string& log, const BatchName& name, BatchKind kind, int wait_ms,
                            std::unique_ptr<Batch>& batch)
{
    struct stat now;
    std::unique_ptr<Batch> claim(new Batch(log, name, kind));
    HeldFile& file = *claim->m_file;
    if (!file.Open(claim->m_path, O_RDONLY))
        return errno == ENOENT ? Claimed::gone : Claimed::unreadable;
    if (!file.Look(now) || !IsOwnFile(now))
        return Claimed::gone;
    const HeldFile::Lock lock = file.WaitForLock(wait_ms, claim->m_path);
    // During the wait the holder may have sent and deleted it, or replaced it by its first half.
    if (!file.IsAt(claim->m_path) || !file.Look(now))
        return Claimed::gone;
    if (lock == HeldFile::Lock::refused)
        return Claimed::busy;
    claim->m_bytes = static_cast<uint64_t>(now.st_size);
    claim->m_mode = now.st_mode;
    batch = std::move(claim);
    return Claimed::yes;
}

/// Passes the part's text to `visit` in pieces, until that returns false. @return false when it could not be read
template <typename Visit>
bool Batch::Walk(const BatchPart& part, Visit visit) const
{
    std::vector<char> piece(std::min<uint64_t>(piece_size, part.bytes));
    for (uint64_t at = part.offset, end = part.offset + part.bytes; at < end;) {
        const auto size = static_cast<size_t>(std::min<uint64_t>(piece.size(), end - at));
        if (!m_file->ReadAt(static_cast<off_t>(at), piece.data(), size))
            return false;
        if (!visit(at, std::string_view(piece.data(), size)))
            return true;
        at += size;
    }
    return true;
}

bool Batch::Read(const BatchPart& part, std::string& text) const
{
    text.clear();
    lumo::reserve_large(text, part.bytes);
    return Walk(part, [&](uint64_t, std::string_view piece) { return text.append(piece), true; });
}

std::optional<uint64_t> Batch::CountLinesOf(const BatchPart& part) const
{
    LineCounter counter;
    const bool whole = Walk(part, [&](uint64_t, std::string_view piece) { return counter.Take(piece), true; });
    return whole ? std::optional(counter.Lines()) : std::nullopt;
}

// The position behind the last byte that is no line feed.
std::optional<uint64_t> Batch::ContentEnd(const BatchPart& part) const
{
    uint64_t end = part.offset + part.bytes;
    for (char last = '\n'; end > part.offset; --end) {
        if (!m_file->ReadAt(static_cast<off_t>(end - 1), &last, 1))
            return std::nullopt;
        if (last != '\n')
            break;
    }
    return end;
}

std::optional<std::pair<BatchPart, BatchPart>> Batch::Halves(const BatchPart& part) const
{
    const auto content = ContentEnd(part);
    const uint64_t half = part.offset + part.bytes / 2;
    uint64_t cut = 0, lines_before = 0;
    LineCounter counter;
    const bool read = content && Walk(part, [&](uint64_t at, std::string_view piece) {
                          // Any line end is a possible cut if a line precedes it and something follows it.
                          while (!piece.empty()) {
                              const size_t feed = piece.find('\n');
                              const size_t taken = feed == piece.npos ? piece.size() : feed + 1;
                              counter.Take(piece.substr(0, taken));
                              piece.remove_prefix(taken);
                              at += taken;
                              if (feed == piece.npos || counter.Lines() == 0)
                                  continue;
                              if ((cut != 0 && at > half) || at >= *content)
                                  return false;
                              cut = at;
                              lines_before = counter.Lines();
                          }
                          return true;
                      });
    if (!read || cut == 0)
        return std::nullopt;
    return std::pair(BatchPart{part.offset, cut - part.offset, part.first},
                     BatchPart{cut, part.offset + part.bytes - cut, part.first + lines_before});
}

// A copy of the part under a temporary name: locked, complete and on the disk, not yet sealed.
std::unique_ptr<HeldFile> Batch::CopyOf(const BatchPart& part) const
{
    const std::string path = FileOf(m_log, {m_name.id, part.first}, BatchKind::temporary);
    auto file = NewTemporary(path);
    if (!file)
        return nullptr;
    bool written = true;
    const bool read = Walk(part, [&](uint64_t, std::string_view piece) { return written = WriteAll(*file, piece); });
    if (read && written && Publish(*file, path, FileOf(m_log, {m_name.id, part.first}, m_kind), m_mode, true))
        return file;
    ::unlink(path.c_str());
    return nullptr;
}

std::optional<BatchName> Batch::Split(const std::pair<BatchPart, BatchPart>& halves)
{
    if (!CopyOf(halves.second))
        return std::nullopt;
    auto first = CopyOf(halves.first);
    if (!first)
        return std::nullopt; // the lines of the second half are now in two files; servers ignore repeated lines
    m_file = std::move(first);
    m_bytes = halves.first.bytes;
    return BatchName{m_name.id, halves.second.first};
}

bool Batch::Delete()
{
    if (!m_file->IsAt(m_path))
        return true; // replaced or removed by another process
    return ::unlink(m_path.c_str()) == 0 || errno == ENOENT;
}

std::optional<uint64_t> Batch::Drop(bool told)
{
    const auto lines = CountLinesOf(Whole());
    const bool kept =
        lines && (!told || *lines == 0 || Make(m_log, m_name, BatchKind::dropped, std::to_string(*lines) + "\n", true));
    // A file that cannot be deleted has its number beside it now, so it is never sent again.
    if (!kept || (!Delete() && !told))
        return std::nullopt;
    return lines;
}

std::optional<uint64_t> Batch::DroppedLines() const
{
    std::string text;
    constexpr uint64_t most = 20; // 19 digits and the line feed
    if (m_bytes < 2 || m_bytes > most || !Read(Whole(), text) || text.back() != '\n')
        return std::nullopt;
    text.pop_back();
    const auto lines = ReadDigits(text);
    return lines ? std::optional(static_cast<uint64_t>(*lines)) : std::nullopt;
}

bool Batch::Sync() const
{
    return ForceOntoDisk(*m_file);
}

bool Batch::Make(const std::string& log, const BatchName& name, BatchKind kind, std::string_view text, bool synced)
{
    const std::string path = FileOf(log, name, BatchKind::temporary);
    const auto file = NewTemporary(path);
    if (!file)
        return false;
    if (WriteAll(*file, text))
        return Publish(*file, path, FileOf(log, name, kind), 0444, synced);
    ::unlink(path.c_str());
    return false;
}

} // namespace AnalyticsSDK
