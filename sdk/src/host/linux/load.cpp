// Load counters: the "cpu0", "cpu1", ... lines of /proc/stat, in ticks since the machine started.
#include <charconv>

#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

bool take_number(std::string_view& rest, std::uint64_t& number)
{
    // One blank stands between two numbers, or more.
    rest = files::trim(rest);
    const auto read = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    rest.remove_prefix(static_cast<std::size_t>(read.ptr - rest.data()));
    return read.ec == std::errc();
}

// "cpu0 user nice system idle ..."
bool parse_load(std::string_view line, processor_load& load)
{
    // Read but not used: the processor's number, and the ticks of niced programs.
    std::uint64_t number, nice;
    line.remove_prefix(3);
    return take_number(line, number) && take_number(line, load.user) && take_number(line, nice) &&
           take_number(line, load.system) && take_number(line, load.idle);
}

} // namespace

answer readers::loads(const char* root, load_visitor* visit, void* context)
{
    files::line_file file(root, "/proc/stat");
    std::string_view line;
    if (!file.is_open() || !file.next(line))
        return answer::failed;
    do {
        if (!line.starts_with("cpu"))
            break; // the processors come first; what follows is long and of no use here
        processor_load load;
        if (line.size() < 4 || line[3] == ' ')
            continue; // their sum, which rounds differently
        // A line that cannot be read makes the whole answer wrong, not only this processor's part.
        if (!parse_load(line, load))
            return answer::failed;
        visit(context, load);
    } while (file.next(line));
    return answer::found;
}

answer sources::loads(load_visitor* visit, void* context)
{
    return readers::loads("", visit, context);
}

} // namespace AnalyticsSDK::host
