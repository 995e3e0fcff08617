// The options of a session: texts by which a host chooses how its events are kept and sent.
//
// One table holds each option's key, default, bounds and sentence; docs/options.md says the same, and a test compares
// the two. Any thread may read while another one sets.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace AnalyticsSDK {

/// The options in the order of their table.
enum class Option : size_t
{
    delivery,
    batch_bytes,
    outbox_bytes,
    outbox_days,
    compress,
    interval_ms,
    send_at_start,
    retry_first_ms,
    retry_most_ms,
    close_ms,
    request_ms,
    sync,
    stamp,
    consent,
    count
};

/// Places of words in their rows.
namespace Choice {
inline constexpr int64_t batches = 1, gzip = 1, yes = 1, sync_batch = 1, sync_event = 2;
}

/// One option. A choice has words, and its value is the index of one of them; a number has none.
struct OptionRow
{
    const char* key;
    int64_t preset;
    int64_t least, most;
    std::array<const char*, 4> words;
    const char* sentence;
    bool several = false; ///< any of the words, with commas between them: the value has a bit for each
};

class Options
{
public:
    Options();

    static const std::array<OptionRow, static_cast<size_t>(Option::count)>& Table();
    /// The option with exactly this key; none for null.
    static std::optional<Option> Find(const char* key);

    /// Sets an option. @return false, and no change, for null and for every text that is not one of its values: a
    /// number is plain decimal digits within the bounds
    bool Set(Option option, const char* text);
    /// The value as Set() takes it.
    std::string Text(Option option) const;
    /// The value: a number, or the index of the word in its row.
    int64_t operator[](Option option) const
    {
        return m_values[static_cast<size_t>(option)].load(std::memory_order_relaxed);
    }
    /// Whether a choice is at this word, by its place in the row: looked at for every event.
    bool Is(Option option, int64_t place) const { return (*this)[option] == place; }

private:
    std::array<std::atomic<int64_t>, static_cast<size_t>(Option::count)> m_values;
};

/// A number from plain decimal digits (no sign, no blanks); none for anything else and for more than 2^63 - 1.
std::optional<int64_t> ReadDigits(std::string_view text);

} // namespace AnalyticsSDK
