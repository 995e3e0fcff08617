#include "support/batches.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>

namespace support {
namespace {

// A missing number is 0.
std::optional<uint64_t> number(const Form& fields, const char* name)
{
    const auto field = fields.find(name);
    if (field == fields.end())
        return 0;
    uint64_t value = 0;
    const char* end = field->second.data() + field->second.size();
    const auto [rest, error] = std::from_chars(field->second.data(), end, value);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

bool is_id(const std::string& text)
{
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == text.npos;
}

} // namespace

void Batches::tell(Batch& batch, uint64_t first, uint64_t end)
{
    auto next = batch.told.lower_bound(first);
    if (next != batch.told.begin() && std::prev(next)->second >= first)
        --next;
    while (next != batch.told.end() && next->first <= end) {
        first = std::min(first, next->first);
        end = std::max(end, next->second);
        next = batch.told.erase(next);
    }
    batch.told[first] = end;
}

std::optional<std::vector<std::string_view>> Batches::take(const Form& fields)
{
    const auto id = fields.find("b"), data = fields.find("data");
    const auto first = number(fields, "o"), lost = number(fields, "d");
    if (id == fields.end() || !is_id(id->second) || data == fields.end() || !first || !lost)
        return std::nullopt;
    Batch& batch = m_batches[id->second];
    constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
    if (*lost > 0)
        tell(batch, *first, *lost > most - *first ? most : *first + *lost);
    std::vector<std::string_view> fresh;
    uint64_t line = *first;
    for (std::string_view rest = data->second; !rest.empty();) {
        const std::string_view text = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(text.size() + 1, rest.size()));
        if (!text.empty() && batch.stored.insert(line++).second) // empty ones have no number
            fresh.push_back(text);
    }
    return fresh;
}

uint64_t Batches::dropped() const
{
    uint64_t count = 0;
    for (const auto& [id, batch] : m_batches)
        for (const auto& [first, end] : batch.told)
            count +=
                end - first -
                static_cast<uint64_t>(std::distance(batch.stored.lower_bound(first), batch.stored.lower_bound(end)));
    return count;
}

} // namespace support
