#include "host/linux/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "lumo/tova/own/uninterrupted.h"
#include "lumo/tova/tova.h"

namespace AnalyticsSDK::host::files {

line_file::line_file(const char* root, const char* path)
{
    // A path that does not fit becomes empty, which opens no file; every caller handles that.
    char whole[1024];
    tova_sprintf(whole, sizeof whole, "%s%s", root, path);
    // Closed in programs that the host starts, and never made a controlling terminal.
    descriptor = open(whole, O_RDONLY | O_CLOEXEC | O_NOCTTY);
}

line_file::~line_file()
{
    if (is_open())
        close(descriptor);
}

// A buffer of fixed size instead of a string, which could fail when memory is short.
bool line_file::next(std::string_view& line)
{
    for (;;) {
        const std::size_t held = end - begin;
        const std::size_t feed = std::string_view(buffer + begin, held).find('\n');
        const bool ended = feed != std::string_view::npos;
        const bool full = held == sizeof buffer;
        if (!ended && !full && refill())
            continue;
        if (held == 0)
            return false;
        line = {buffer + begin, ended ? feed : held}; // refill() has moved `begin`
        begin += ended ? feed + 1 : held;
        // A full buffer without a line feed is a line that was cut; its rest is skipped.
        const bool rest_of_a_cut_line = passing_over;
        passing_over = full && !ended;
        if (!rest_of_a_cut_line)
            return true;
    }
}

bool line_file::refill()
{
    // The line returned last is not needed any more, so the rest moves to the front.
    std::memmove(buffer, buffer + begin, end - begin);
    end -= begin;
    begin = 0;
    // Reading these files never blocks, but a signal can still interrupt it.
    const ssize_t count = tova::uninterrupted([this] { return read(descriptor, buffer + end, sizeof buffer - end); });
    if (count <= 0)
        return false;
    end += static_cast<std::size_t>(count);
    return true;
}

std::string_view trim(std::string_view text)
{
    // NUL as well: the device tree ends its texts with one.
    static constexpr std::string_view around(" \t\r\n\0", 5);
    const std::size_t first = text.find_first_not_of(around);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(around) - first + 1);
}

bool split_pair(std::string_view line, std::string_view& key, std::string_view& value)
{
    // The first one: values have colons of their own.
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return false;
    key = trim(line.substr(0, colon));
    value = trim(line.substr(colon + 1));
    return true;
}

} // namespace AnalyticsSDK::host::files
