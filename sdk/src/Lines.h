// Lines of events as they are numbered: every line but the empty ones.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>

namespace AnalyticsSDK {

/// Counts lines in a text that comes piece by piece. A last line without its line feed counts as well.
class LineCounter
{
public:
    void Take(std::string_view text)
    {
        while (!text.empty()) {
            const size_t end = text.find('\n');
            if (end != 0 && !m_inLine)
                ++m_lines;
            m_inLine = end == text.npos;
            text.remove_prefix(m_inLine ? text.size() : end + 1);
        }
    }
    uint64_t Lines() const { return m_lines; }

private:
    uint64_t m_lines = 0;
    bool m_inLine = false;
};

inline uint64_t CountLines(std::string_view text)
{
    LineCounter counter;
    counter.Take(text);
    return counter.Lines();
}

} // namespace AnalyticsSDK
