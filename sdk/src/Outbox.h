// The outbox of a log: sealed batches that wait beside it, for any process that logs there to send.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Batch.h"
#include "BatchName.h"
#include "HeldFile.h"

namespace AnalyticsSDK {

/// What a scan of the folder found.
struct OutboxContents
{
    struct Waiting
    {
        BatchName name;
        uint64_t bytes;
    };
    std::vector<Waiting> batches;   ///< sealed, oldest first
    std::vector<BatchName> dropped; ///< numbers of dropped lines that the server has not heard of, in order
    uint64_t openBytes = 0;         ///< of the file that is written to

    uint64_t Bytes() const;
};

/// The limits of an outbox.
struct OutboxLimits
{
    uint64_t bytes;
    int64_t age_ms;
};

/// The files of one log. Keeps nothing between calls, as other processes change the folder at any time.
class Outbox
{
public:
    /// @param log absolute path
    explicit Outbox(std::string log);

    const std::string& Log() const { return m_log; }
    std::string OpenPath() const { return m_log + ".open"; }

    /// Scans the folder and changes nothing.
    OutboxContents Scan() const;
    /// Scans the folder and removes what crashes left: abandoned temporary files, empty batches, batches that were
    /// dropped already, invalid `.dropped` files.
    OutboxContents Tidy() const;

    /// Deletes everything of the outbox, whoever has claimed it. @return false when a file could not be deleted
    bool DeleteAll() const;

    /// Seals what was written so far, or finishes a sealing that was begun; nothing when the file is empty or missing.
    /// @return false when a sealing failed: writing then goes on in the same file
    bool SealOpen(int wait_ms) const;
    /// Makes a batch of the default mode's file, if it holds anything.
    void TakeOver() const;
    /// Forces batches that were sealed at or after a time onto the disk.
    void Sync(const OutboxContents& contents, int64_t since_ms) const;
    /// Whether a `.dropped` file for the batch exists: then its lines are dropped, though their file is still there.
    bool IsDropped(const BatchName& name) const;

    /// Drops the oldest batches until the limits hold. Claimed ones are spared.
    /// @param lost receives the number of lines of each dropped batch
    void KeepLimits(OutboxContents& contents, const OutboxLimits& limits,
                    const std::function<void(uint64_t)>& lost) const;

private:
    struct Found;
    Found List() const;

    std::string m_log, m_folder, m_name;
};

/// Seals a file whose exclusive lock is held: takes the write permission away and gives it a batch's name. Where that
/// fails the file is as it was.
bool SealHeld(const HeldFile& file, const struct stat& now, const std::string& path, const std::string& log);

} // namespace AnalyticsSDK
