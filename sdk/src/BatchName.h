// The names of the outbox: files beside the log, one a batch.
#ifndef ANALYTICSSDK_BATCHNAME_H
#define ANALYTICSSDK_BATCHNAME_H

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AnalyticsSDK {

/// Which lines a file of the outbox is about: those of batch `id` from number `first` on. In order, oldest first.
struct BatchName
{
    /// 32 hexadecimal digits, lower case: milliseconds since 1970 UTC in the first 12, random bits in the rest.
    std::string id;
    uint64_t first = 0; ///< lines are counted from 0 as the batch was sealed; empty ones have no number

    auto operator<=>(const BatchName&) const = default;

    /// A new id of this moment; empty when the system has no random bytes to give.
    static std::string NewId();
    /// When the batch was sealed, by its id.
    int64_t SealedAt_ms() const;
};

/// What a file of the outbox is for, by its extension.
enum class BatchKind
{
    batch,    ///< sealed lines
    dropped,  ///< how many lines limits threw away, as digits and a line feed
    temporary ///< one of the above in the making
};

/// "LOG.ID.FIRST.batch" and so on.
std::string FileOf(std::string_view log, const BatchName& name, BatchKind kind);
/// What FileOf() was given, when the file's name is exactly what it gives for that log; both without folders.
std::optional<std::pair<BatchName, BatchKind>> ReadFileName(std::string_view file, std::string_view log);

} // namespace AnalyticsSDK

#endif
