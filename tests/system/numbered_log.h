// Looks at an event log file of numbered events: which numbers it holds, and whether every line is whole.
#pragma once

#include "system/hosts/host.h"

#include <string>
#include <string_view>
#include <vector>

/// The number in a line without its line feed; -1 when the line is not, byte for byte, a whole numbered event.
inline long number_in(std::string_view line)
{
    const std::string start = host::line_start();
    if (line.size() < start.size() || line.substr(0, 6) != "[ 3, \"" ||
        line.substr(25, start.size() - 25) != start.substr(25))
        return -1;
    const std::string_view mark = "{ \"n\": ", rest = line.substr(start.size());
    const size_t at = rest.find(mark);
    const long number = at == rest.npos ? -1 : atol(std::string(rest.substr(at + mark.size(), 20)).c_str());
    const size_t bare = host::numbered_text(number, 0).size();
    return rest.size() >= bare && rest == host::numbered_text(number, rest.size() - bare) ? number : -1;
}

struct NumberedLog
{
    std::vector<long> numbers;       ///< of the whole lines, in the file's order
    std::vector<std::string> broken; ///< lines that are no whole event
    std::string tail;                ///< what follows the last line feed
};

inline NumberedLog numbered_log(std::string_view text)
{
    NumberedLog found;
    for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) {
        const long number = number_in(text.substr(0, end));
        if (number >= 0)
            found.numbers.push_back(number);
        else
            found.broken.emplace_back(text.substr(0, end));
    }
    found.tail = text;
    return found;
}
