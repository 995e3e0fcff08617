// The processors: how many run, for how long, and their load counters, which are the "cpu0", "cpu1", ... lines of
// /proc/stat, in ticks since the machine started.
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

namespace {

// "0-3,8,10-11": what the kernel calls a list.
std::uint64_t count_list(std::string_view list)
{
    std::uint64_t count = 0, first = 0;
    for (list = files::trim(list); take_number(list, first);) {
        std::uint64_t last = first;
        if (list.starts_with('-')) {
            list.remove_prefix(1);
            if (!take_number(list, last) || last < first)
                return 0;
        }
        count += last - first + 1;
        if (!list.starts_with(','))
            break;
        list.remove_prefix(1);
    }
    return list.empty() ? count : 0;
}

} // namespace

answer readers::processors(const char* root, std::uint64_t& count)
{
    count = 0;
    files::line_file online(root, "/sys/devices/system/cpu/online");
    if (std::string_view list; online.is_open() && online.next(list))
        count = count_list(list);
    const auto add = [](void* sum, const processor_load&) { ++*static_cast<std::uint64_t*>(sum); };
    if (count == 0 && loads(root, add, &count) != answer::found)
        return answer::failed;
    return count != 0 ? answer::found : answer::failed;
}

answer readers::boot_seconds(const char* root, std::uint64_t& seconds)
{
    files::line_file file(root, "/proc/uptime");
    std::string_view line;
    return file.is_open() && file.next(line) && take_number(line, seconds) ? answer::found : answer::failed;
}

answer sources::processors(std::uint64_t& count)
{
    return readers::processors("", count);
}

answer sources::boot_seconds(std::uint64_t& seconds)
{
    return readers::boot_seconds("", seconds);
}

answer sources::loads(load_visitor* visit, void* context)
{
    return readers::loads("", visit, context);
}

} // namespace AnalyticsSDK::host
