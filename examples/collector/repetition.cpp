#include "repetition.h"

#include <algorithm>

namespace collector {
namespace {

constexpr size_t remembered = 8;

size_t known_lines(std::string_view data, std::string_view earlier)
{
    if (!data.starts_with(earlier))
        return 0;
    if (data.size() == earlier.size())
        return data.size();
    return data[earlier.size()] == '\n' ? earlier.size() + 1 : earlier.rfind('\n') + 1; // npos + 1 is 0
}

} // namespace

size_t Repetitions::take(const std::string& unique_id, std::string_view data)
{
    // Some senders leave out the last line feed.
    const std::string_view text = data.substr(0, data.find_last_not_of('\n') + 1);
    if (text.empty())
        return 0;
    size_t known = 0;
    std::deque<std::string>& uploads = m_uploads[unique_id];
    for (const std::string& earlier : uploads)
        known = std::max(known, known_lines(text, earlier));
    uploads.emplace_back(text);
    if (uploads.size() > remembered)
        uploads.pop_front();
    return known == text.size() ? data.size() : known;
}

} // namespace collector
