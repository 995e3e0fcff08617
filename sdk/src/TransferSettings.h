// The limits of transfers, and the clock that they go by.
#pragma once

#include <atomic>
#include <cstddef>

#include "AnalyticsSDK/Utilities.h"

namespace AnalyticsSDK {

/// Fixed in practice: tests put smaller limits, and a clock of their own, in their place.
struct TransferSettings
{
    static inline std::atomic<long> connect_timeout_ms{30'000};
    /// From the start of a transfer to its end, the upload included.
    static inline std::atomic<long> total_timeout_ms{60'000};
    /// Bytes of body that a queued request keeps in memory.
    static inline std::atomic<std::size_t> text_body_limit{16 * 1024 * 1024};
    /// The clock of stall detection, in milliseconds; null for GetCurrentTimeInMillis.
    static inline std::atomic<double (*)()> clock{nullptr};

    static double Now()
    {
        double (*made_up)() = clock;
        return made_up ? made_up() : GetCurrentTimeInMillis();
    }
};

} // namespace AnalyticsSDK
