// The file names of the outbox: files beside the log, one for each batch.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AnalyticsSDK {

/// Which lines a file of the outbox holds or counts: those of batch `id` from number `first` on. Ordered by age, oldest
/// first.
struct BatchName
{
    /// 32 hexadecimal digits, lower case: milliseconds since 1970 UTC in the first 12, random bits in the rest.
    std::string id;
    uint64_t first = 0; ///< lines are counted from 0 in the batch as it was sealed; empty lines do not count

    auto operator<=>(const BatchName&) const = default;

    /// A new id with the present time; empty when the system gives no random bytes.
    static std::string NewId();
    /// When the batch was sealed, by its id.
    int64_t SealedAt_ms() const;
};

/// What a file of the outbox is for, by its extension.
enum class BatchKind
{
    batch,    ///< sealed lines
    dropped,  ///< the number of lines that were dropped, as digits and a line feed
    temporary ///< one of the above while it is written
};

/// "LOG.ID.FIRST.batch" and so on.
std::string FileOf(std::string_view log, const BatchName& name, BatchKind kind);
/// The inverse of FileOf(): name and kind, if the file's name is exactly one that FileOf() returns for that log. Both
/// without folders.
std::optional<std::pair<BatchName, BatchKind>> ReadFileName(std::string_view file, std::string_view log);

} // namespace AnalyticsSDK
