// One file of the outbox, claimed: the process that holds its exclusive lock may send, split, drop and delete it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "BatchName.h"
#include "HeldFile.h"

namespace AnalyticsSDK {

/// A run of whole lines within a batch's file.
struct BatchPart
{
    uint64_t offset = 0, bytes = 0;
    uint64_t first = 0; ///< number of its first line
};

class Batch
{
public:
    enum class Claimed
    {
        yes,
        busy,       ///< another process or session holds it
        gone,       ///< the file does not exist any more
        unreadable, ///< it is there and cannot be opened; errno says why
    };
    /// Claims a file of the outbox for as long as `batch` lives. On a file system without locks it always succeeds.
    /// @param log absolute path of the log @param wait_ms for its lock: a writer that looks at its old handle holds it
    ///     for a moment
    static Claimed Claim(const std::string& log, const BatchName& name, BatchKind kind, int wait_ms,
                         std::unique_ptr<Batch>& batch);

    const BatchName& Name() const { return m_name; }
    uint64_t Bytes() const { return m_bytes; }
    BatchPart Whole() const { return {0, m_bytes, m_name.first}; }
    /// Reads a part's lines as they are. False when the file could not be read whole.
    bool Read(const BatchPart& part, std::string& text) const;
    /// Number of lines of a part; none when it could not be read.
    std::optional<uint64_t> CountLinesOf(const BatchPart& part) const;

    /// The two halves of a part, cut at the line end nearest below half of its bytes, else at the next one; each has at
    /// least one line. None for a single line, and when it could not be read.
    std::optional<std::pair<BatchPart, BatchPart>> Halves(const BatchPart& part) const;
    /// Splits the file in two, second half first, so that no line is ever without a file. This object becomes the first
    /// half, still claimed. @return the second half's name; none when nothing could be written, and nothing has changed
    /// then
    std::optional<BatchName> Split(const std::pair<BatchPart, BatchPart>& halves);

    /// Deletes the file. True when it is gone.
    bool Delete();
    /// Drops the lines: writes their number to a `.dropped` file if `told`, then deletes this file.
    /// @return their number; none when it could not be written, and the file is kept then
    std::optional<uint64_t> Drop(bool told);
    /// Of a `.dropped`: the number it holds. None when it is not digits and a line feed.
    std::optional<uint64_t> DroppedLines() const;
    /// Forces the file onto the disk.
    bool Sync() const;

    /// Makes a sealed file of the outbox with this text: written as a temporary file, then renamed. False when that
    /// failed.
    static bool Make(const std::string& log, const BatchName& name, BatchKind kind, std::string_view text, bool synced);

private:
    Batch(const std::string& log, const BatchName& name, BatchKind kind);
    template <typename Visit>
    bool Walk(const BatchPart& part, Visit visit) const;
    std::optional<uint64_t> ContentEnd(const BatchPart& part) const;
    std::unique_ptr<HeldFile> CopyOf(const BatchPart& part) const;

    std::string m_log;
    BatchName m_name;
    BatchKind m_kind;
    std::string m_path;
    std::unique_ptr<HeldFile> m_file;
    uint64_t m_bytes = 0;
    mode_t m_mode = 0;
};

/// Removes a temporary file that no process holds any more.
void RemoveAbandoned(const std::string& path);

} // namespace AnalyticsSDK
