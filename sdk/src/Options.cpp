#include "Options.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace AnalyticsSDK {
namespace {

constexpr int64_t most_ms = std::numeric_limits<int32_t>::max(), day_ms = 86'400'000;

// In the order of Option. The text of each row says what the option does, then what hosts should know.
constexpr std::array<OptionRow, static_cast<size_t>(Option::count)> table{{
    {"delivery",
     0,
     0,
     1,
     {"whole", "batches"},
     "How events are kept and sent: one file in one request, or in batches."},
    {"batch_bytes", 262144, 4096, 16777216, {}, "Bytes of lines that a batch is sealed before."},
    {"outbox_bytes",
     67108864,
     65536,
     1099511627776,
     {},
     "Bytes that may wait; past them the oldest batches are dropped."},
    {"outbox_days", 30, 1, 3650, {}, "Days that a batch may wait before it is dropped."},
    {"compress", 0, 0, 1, {"none", "gzip"}, "How the body of a request is packed."},
    {"interval_ms", 3600000, 10, most_ms, {}, "Milliseconds from one upload cycle to the next."},
    {"send_at_start", 0, 0, 1, {"no", "yes"}, "Whether the first cycle comes at once, not after the first interval."},
    {"retry_first_ms",
     1000,
     10,
     day_ms,
     {},
     "Milliseconds to wait after a first failure; each further one doubles them."},
    {"retry_most_ms", 3600000, 10, day_ms, {}, "Milliseconds that a wait after failures grows to."},
    {"close_ms", 60000, 0, most_ms, {}, "Milliseconds that a shutdown gives to an upload under way."},
    {"request_ms", 60000, 100, most_ms, {}, "Milliseconds that one request may take."},
    {"sync",
     0,
     0,
     2,
     {"none", "batch", "event"},
     "What is forced onto the disk: nothing, each sealed batch, each event."},
    {"stamp",
     0,
     0,
     15,
     {"time_ms", "sequence", "session", "event"},
     "Members that every event begins with, any of these with commas between them.",
     true},
    {"consent", 0, 0, 2, {"given", "unknown", "revoked"}, "What the user agrees to: all, no sending yet, or nothing."},
}};

// The bits of words with commas between them, in any order; none of them for an empty text.
std::optional<int64_t> BitsOf(const OptionRow& row, std::string_view text)
{
    int64_t bits = 0;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(','));
        const auto place = std::find(row.words.begin(), row.words.end(), word);
        if (place == row.words.end() || text.size() == word.size() + 1) // a comma with nothing behind it
            return std::nullopt;
        bits |= int64_t{1} << (place - row.words.begin());
        text.remove_prefix(std::min(word.size() + 1, text.size()));
    }
    return bits;
}

std::string WordsOf(const OptionRow& row, int64_t bits)
{
    std::string text;
    for (size_t at = 0; at < row.words.size(); ++at)
        if ((bits >> at & 1) != 0)
            text += (text.empty() ? "" : ",") + std::string(row.words[at]);
    return text;
}

// The index of a choice's word, or the value of the digits.
std::optional<int64_t> ValueOf(const OptionRow& row, const char* text)
{
    if (row.several)
        return BitsOf(row, text);
    if (row.words[0] == nullptr)
        return ReadDigits(text);
    for (int64_t place = row.least; place <= row.most; ++place)
        if (std::strcmp(row.words[static_cast<size_t>(place)], text) == 0)
            return place;
    return std::nullopt;
}

} // namespace

std::optional<int64_t> ReadDigits(std::string_view text)
{
    int64_t value = 0;
    const char* end = text.data() + text.size();
    // from_chars accepts a minus, and any number of leading zeros.
    if (text.empty() || text.size() > 19 || text.front() == '-')
        return std::nullopt;
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

Options::Options()
{
    for (size_t at = 0; at < table.size(); ++at)
        m_values[at] = table[at].preset;
}

const std::array<OptionRow, static_cast<size_t>(Option::count)>& Options::Table()
{
    return table;
}

std::optional<Option> Options::Find(const char* key)
{
    for (size_t at = 0; key != nullptr && at < table.size(); ++at)
        if (std::strcmp(table[at].key, key) == 0)
            return static_cast<Option>(at);
    return std::nullopt;
}

bool Options::Set(Option option, const char* text)
{
    const auto at = static_cast<size_t>(option);
    const OptionRow& row = table[at];
    const auto value = text != nullptr ? ValueOf(row, text) : std::nullopt;
    if (!value || *value < row.least || *value > row.most)
        return false;
    m_values[at] = *value;
    return true;
}

std::string Options::Text(Option option) const
{
    const OptionRow& row = table[static_cast<size_t>(option)];
    const int64_t value = (*this)[option];
    if (row.several)
        return WordsOf(row, value);
    return row.words[0] != nullptr ? row.words[static_cast<size_t>(value)] : std::to_string(value);
}

} // namespace AnalyticsSDK
