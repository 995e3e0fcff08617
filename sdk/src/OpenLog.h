// The file that events are written to in batches: kept open, locked for each line, sealed when it is full.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "HeldFile.h"
#include "Options.h"
#include "Outbox.h"

namespace AnalyticsSDK {

/// The writing end of an outbox. Any thread; each call takes the log's lock by itself, and never while it waits.
class OpenLog
{
public:
    /// Both must outlive this.
    OpenLog(const Outbox& outbox, const Options& options) : m_outbox(outbox), m_options(options) {}

    enum class Written
    {
        no,
        yes,
        andSealed ///< yes, and a batch was sealed on the way
    };
    /// Appends a line, which brings its line feed, whole or not at all. Returns within about 100 ms, whatever other
    /// processes do with the file.
    Written Append(std::string_view line);
    /// For each cycle: opens anew when the path leads elsewhere by now, and lets a full file be sealed again where that
    /// failed before.
    void Refresh();

private:
    enum class Step
    {
        written,
        failed,
        again, ///< another process holds, seals or has replaced the file
        aside  ///< nothing can be written there
    };
    Step TryAppend(std::string_view line);
    Step OpenAnew();
    Step WriteLocked(std::string_view line, const struct stat& now);
    bool LooksOpen(struct stat& now);
    bool EndsInMidLine(off_t end) const;
    bool WriteAside(std::string_view line) const;

    const Outbox& m_outbox;
    const Options& m_options;
    // All of it guarded by the log's lock.
    HeldFile m_file;
    off_t m_end = -1;        ///< where our last line ended; -1: not known
    bool m_sealed = false;   ///< by the append under way
    bool m_maySeal = true;   ///< until it fails; again with the next cycle
    bool m_wasStuck = false; ///< the last append waited without success, so the next one does not wait
};

} // namespace AnalyticsSDK
