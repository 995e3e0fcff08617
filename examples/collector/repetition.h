// Which part of an upload was there before. A host's log only grows until an upload of it succeeds: when the answer is
// lost, the next upload begins with the whole text of the one before it. Equal lines alone tell nothing, since two
// equal events within a second are equal lines.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>
#include <string_view>

namespace collector {

/// Remembers the last eight uploads of every unique id. For one thread at a time.
class Repetitions
{
public:
    /// How many bytes at the beginning of an upload are those of an earlier one, up to the end of a line. A line that
    /// was cut in the earlier upload is not among them. The upload is remembered.
    size_t take(const std::string& unique_id, std::string_view data);

private:
    std::map<std::string, std::deque<std::string>> m_uploads;
};

} // namespace collector
