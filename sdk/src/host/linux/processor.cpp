// The processor's name and clock. On x86 both are in /proc/cpuinfo; other architectures have other keys, or nothing.
#include <charconv>
#include <cmath>

#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

using files::line_file;

// More lines than the description of one processor has on any architecture.
constexpr int lines_to_read = 64;

// The value of the first of the keys that the file has, in the order of the keys; a later key only stands in.
template <std::size_t Count>
bool first_value(line_file& file, const std::string_view (&keys)[Count], text& found)
{
    std::size_t best = Count;
    std::string_view line, key, value;
    for (int read = 0; read < lines_to_read && best != 0 && file.next(line); ++read) {
        // An empty or over-long value is ignored: another key may have one that can be used.
        if (!files::split_pair(line, key, value) || value.empty() || value.size() >= found.size())
            continue;
        for (std::size_t at = 0; at < best; ++at)
            if (key == keys[at]) {
                found[value.copy(found.data(), found.size() - 1)] = '\0';
                best = at;
            }
    }
    return best != Count;
}

// A unit behind the number ("2300.000000MHz") is ignored; 0 when there is no number.
double leading_number(std::string_view digits)
{
    double number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

bool to_megahertz(double number, std::int32_t& megahertz)
{
    // Some kernels write 0 where a hypervisor hides the clock, which counts as unknown.
    if (!(number >= 1 && number < 1e6))
        return false;
    megahertz = static_cast<std::int32_t>(std::lround(number));
    return true;
}

} // namespace

namespace readers {

answer processor_name(const char* root, text& name)
{
    // x86, LoongArch, MIPS, PowerPC, 32-bit ARM. 64-bit ARM tells codes only.
    static constexpr std::string_view keys[] = {"model name", "Model Name", "cpu model", "cpu", "Processor"};
    line_file file(root, "/proc/cpuinfo");
    if (!file.is_open())
        return answer::failed;
    return first_value(file, keys, name) ? answer::found : answer::unsupported;
}

answer clock_megahertz(const char* root, std::int32_t& megahertz)
{
    static constexpr std::string_view keys[] = {"cpu MHz", "CPU MHz", "clock"};
    text value{};
    line_file file(root, "/proc/cpuinfo");
    if (file.is_open() && first_value(file, keys, value) && to_megahertz(leading_number(value.data()), megahertz))
        return answer::found;
    // Second choice: the driver tells the highest clock, the other file the present or nominal one.
    std::string_view kilohertz;
    line_file driver(root, "/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq");
    if (driver.is_open() && driver.next(kilohertz) && to_megahertz(leading_number(kilohertz) / 1000, megahertz))
        return answer::found;
    return file.is_open() ? answer::unsupported : answer::failed;
}

} // namespace readers

answer sources::processor(processor_identity& identity)
{
    identity.named = true;
    return readers::processor_name("", identity.name);
}

} // namespace AnalyticsSDK::host
