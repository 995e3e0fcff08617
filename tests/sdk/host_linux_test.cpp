// The Linux facts: on this machine against independent readings, and on samples of what other machines' kernels write.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <sstream>

#include "AnalyticsSDK/SystemInfo.h"
#include "analytics.h"
#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/version.h"
#include "support/child.h"
#include "support/scratch.h"

using namespace AnalyticsSDK;
namespace readers = host::readers;

namespace {

using Probe = std::int32_t(char*, unsigned int);

std::string read(Probe* probe)
{
    char buffer[300] = "";
    const std::int32_t status = probe(buffer, sizeof buffer);
    return status == 0 ? buffer : "status " + std::to_string(status);
}

// What a shell says, without the line feed at the end.
std::string shell(const std::string& command)
{
    auto ended = support::run({"sh", "-c", command});
    while (ended.output.ends_with('\n'))
        ended.output.pop_back();
    return ended.output;
}

std::string sample(const std::string& machine)
{
    return TEST_SOURCE_DIR "/tests/sdk/machines/" + machine;
}

// A reading of a sample machine as text: the value, or the answer that there is none.
template <class Value>
std::string outcome(host::answer (*reader)(const char*, Value&), const std::string& machine)
{
    Value value{};
    const host::answer given = reader(sample(machine).c_str(), value);
    std::ostringstream text;
    if constexpr (std::is_same_v<Value, host::text>)
        text << value.data();
    else
        text << value;
    return given == host::answer::found ? text.str() : given == host::answer::failed ? "failed" : "unsupported";
}

// What the machine's own tools say of each fact. Where nothing comes out the machine has no such source; what changes
// from one moment to the next is compared with some room.
const struct
{
    Probe* probe;
    const char* command;
    double room;
} readings[] = {
    {GetOSVersion, "uname -r | sed -E 's/^([0-9]+)\\.([0-9]+)(\\.([0-9]+))?.*/\\1.\\2.\\4/; s/\\.$/.0/'", 0},
    {GetArchitectureType,
     "case $(uname -m) in x86_64|i?86) echo x86;; ppc*) echo ppc;; m68k) echo 68K;; *) echo unknown;; esac", 0},
    {GetModel, "(cat /sys/class/dmi/id/product_name || tr -d '\\0' </proc/device-tree/model) | grep . || echo status 1",
     0},
    {GetCPUType, "sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1", 0},
    {GetCPUClockSpeed, "awk '/^cpu MHz/ { print $4; exit }' /proc/cpuinfo", 4000},
    {GetCPUUsage,
     "awk '/^cpu[0-9]/ { busy += $2 + $4; all += $2 + $4 + $5 } END { print busy * 100 / all }' /proc/stat", 2},
    {GetTotalRAM, "awk '/^MemTotal:/ { printf \"%d MB\", $2 / 1024 }' /proc/meminfo", 0},
    {GetTotalVirtualMemory, "echo $(getconf _PHYS_PAGES) $(getconf PAGESIZE) | awk '{ print $1 * $2 / 1048576 }'", 0.5},
    {GetFreeVirtualMemory, "awk '/^MemFree:/ { print $2 / 1024 }' /proc/meminfo", 1024},
    {GetTotalHardDrive, "df -B1 --output=size / | awk 'NR == 2 { printf \"%.2f GB\", $1 / 1e9 }'", 0},
    {GetFreeHardDrive, "df -B1 --output=avail / | awk 'NR == 2 { print $1 / 1e9 }'", 5},
    {GetTimeZone, "date +%z | sed -E 's/(..)$/:\\1/'", 0},
    {GetDomainWorkGroup, "uname -n", 0},
    {GetSystemName, "uname -n", 0},
};

} // namespace

TEST(LinuxFacts, AgreeWithWhatTheMachinesOwnToolsSay)
{
    for (const auto& [probe, command, room] : readings) {
        const std::string told = shell(command), ours = read(probe);
        if (told.empty())
            continue;
        // Free memory starts over at 4,096 MB; no other fact is that far off by chance.
        if (room != 0)
            EXPECT_LE(std::fabs(std::remainder(std::stod(ours) - std::stod(told), 4096)), room)
                << command << ": " << told;
        else
            EXPECT_EQ(ours, told) << command;
    }
}

// The same for the facts that have no probe of their own.
TEST(LinuxFacts, AreThoseOfThisMachine)
{
    const struct
    {
        const char *key, *command;
        double room;
    } facts[] = {{"system", "echo linux", 0},
                 {"system_version", ". /etc/os-release; echo $PRETTY_NAME", 0},
                 {"kernel", "uname -r", 0},
                 {"machine", "uname -m", 0},
                 {"processors", "getconf _NPROCESSORS_ONLN", 0},
                 {"memory_bytes", "awk '/^MemTotal:/ { print $2 * 1024 }' OFMT=%.0f CONVFMT=%.0f /proc/meminfo", 0},
                 {"memory_available_bytes", "awk '/^MemAvailable:/ { print $2 * 1024 }' /proc/meminfo", 2e9},
                 {"disk_bytes", "df -B1 --output=size / | tail -n 1 | tr -d ' '", 0},
                 {"disk_free_bytes", "df -B1 --output=avail / | tail -n 1", 5e9},
                 {"boot_seconds", "cat /proc/uptime", 60},
                 {"virtualized", "test ! -e /.dockerenv || echo container", 0}};
    for (const auto& [key, command, room] : facts) {
        char ours[200] = "";
        const std::string told = shell(command);
        const uint32_t result = analytics_property_get(nullptr, key, ours, sizeof ours);
        if (told.empty())
            continue;
        EXPECT_EQ(result, 0u) << key;
        if (room != 0)
            EXPECT_LE(std::fabs(std::stod(ours) - std::stod(told)), room) << key << ": " << told;
        else
            EXPECT_EQ(ours, told) << key;
    }
}

TEST(LinuxFacts, SampleMachinesAreWhatTheirKernelsTell)
{
    const struct
    {
        const char *machine, *name, *clock, *model;
    } cases[] = {
        {"x86_64-large", "Intel(R) Xeon(R) CPU @ 2.20GHz", "2200", "20XWCTO1WW"},
        // codes only, and a clock from the frequency driver
        {"aarch64", "unsupported", "2419", "Raspberry Pi 4 Model B Rev 1.4"},
        {"armv7", "ARMv7 Processor rev 10 (v7l)", "unsupported", "unsupported"},
        // an empty DMI name is none
        {"ppc64le", "POWER9 (architected), altivec supported", "2300", "IBM,9009-42A"},
        {"loongarch64", "Loongson-3A5000", "2500", "unsupported"},
        {"container", "unknown", "unsupported", "unsupported"},
        {"broken", "unsupported", "unsupported", "failed"}, // a model longer than any name
        {"no such machine", "failed", "failed", "unsupported"},
    };
    for (const auto& [machine, name, clock, model] : cases) {
        EXPECT_EQ(outcome(readers::processor_name, machine), name) << machine;
        EXPECT_EQ(outcome(readers::clock_megahertz, machine), clock) << machine;
        EXPECT_EQ(outcome(readers::model, machine), model) << machine;
    }
    const std::pair<const char*, std::int32_t> architectures[] = {{"i686", 10}, {"ppc64le", 2}, {"m68k", 1}, {"", 0}};
    for (const auto& [machine, code] : architectures)
        EXPECT_EQ(readers::architecture_code(machine), code) << machine;
}

TEST(LinuxFacts, SampleLoadsAreThoseOfEveryProcessor)
{
    using sums = std::vector<std::uint64_t>; // processors, user, system, idle; none when there is no answer
    const auto read_sums = [](const char* machine) {
        sums all(4);
        const auto add = [](void* context, const host::processor_load& load) {
            auto& to = *static_cast<sums*>(context);
            to = {to[0] + 1, to[1] + load.user, to[2] + load.system, to[3] + load.idle};
        };
        return readers::loads(sample(machine).c_str(), add, &all) == host::answer::found ? all : sums();
    };
    EXPECT_EQ(read_sums("aarch64"), (sums{2, 1678 + 1679, 2156 + 2157, 681196 + 681197}));
    const sums large = read_sums("x86_64-large");
    ASSERT_EQ(large.size(), 4u);
    EXPECT_EQ(large[0], 300u);
    EXPECT_EQ(large[3], 300 * std::uint64_t{4000000000});
    EXPECT_EQ(read_sums("container"), sums(4));
    for (const char* none : {"broken", "no such machine"})
        EXPECT_EQ(read_sums(none), sums());
}

TEST(LinuxFacts, SampleMemoryAddsUpToAllOfIt)
{
    // Free, active, inactive and wired pages.
    const auto pages = [](const std::string& machine, std::uint64_t page_size) {
        host::page_counts counts{};
        const host::answer given = readers::pages(sample(machine).c_str(), page_size, counts);
        EXPECT_EQ(given, machine == "broken" ? host::answer::failed : host::answer::found);
        return std::array{counts.free, counts.active, counts.inactive, counts.wired};
    };
    const std::uint64_t wired = 3884448 - 302112 - 803328 - 2422848;
    EXPECT_EQ(pages("aarch64", 4096), (std::array<std::uint64_t, 4>{302112 / 4, 803328 / 4, 2422848 / 4, wired / 4}));
    EXPECT_EQ(pages("ppc64le", 65536)[3], (33289728u - 32000000u) / 64);
    EXPECT_EQ(pages("container", 4096)[3], 0u); // more free than there is: the figures were not read at one instant
    pages("broken", 4096);
    EXPECT_EQ(outcome(readers::memory_megabytes, "aarch64"), "3793");
    EXPECT_EQ(outcome(readers::memory_megabytes, "broken"), "failed");
}

TEST(LinuxFacts, KernelReleasesNeedNotHaveThreeNumbersOfOneDigit)
{
    static const struct
    {
        const char* release;
        std::array<std::int32_t, 3> numbers; // noughts: there are none
    } cases[] = {{"6.18.144-13-amd64", {6, 18, 144}},
                 {"5.10-custom", {5, 10, 0}},
                 {"7.x", {7, 0, 0}},
                 {"4.4.0.1", {4, 4, 0}},
                 {"custom", {0, 0, 0}}};
    for (const auto& [release, expected] : cases) {
        std::int32_t n[3];
        EXPECT_EQ(host::parse_version(release, n), expected[0] != 0) << release;
        EXPECT_EQ(std::to_array(n), expected) << release;
    }
}

TEST(LinuxFacts, SampleMachinesTellWhatTheyAre)
{
    // The environment of each machine is a row's own: variables with their values, blanks between them.
    static std::map<std::string, std::string> variables;
    const auto look_up = [](const char* name) -> const char* {
        const auto found = variables.find(name);
        return found != variables.end() ? found->second.c_str() : nullptr;
    };
    const struct
    {
        const char *machine, *environment, *signature, *expected;
    } cases[] = {
        {"x86_64-large", "LANG=de_DE.UTF-8 XDG_CURRENT_DESKTOP=ubuntu:GNOME WAYLAND_DISPLAY=wayland-0 DISPLAY=:0", "",
         "Ubuntu 24.04.1 LTS, 300, 67447894016, 61018136576, 8640123, de_DE, Europe/Berlin, GNOME, wayland, no"},
        {"aarch64", "LANG=sr_RS.UTF-8@latin LC_ALL= LC_MESSAGES= DISPLAY=:10 XDG_CURRENT_DESKTOP=KDE", "",
         "Debian GNU/Linux 12 (bookworm), 6, 3977674752, 3125440512, 0, sr_RS@latin, Etc/UTC, KDE, x11, no"},
        {"container", "LANG=en_GB TZ=:America/New_York LC_ALL=POSIX", "KVMKVMKVM",
         "Say \"hi\" $1, failed, 2147483648, 2140160000, failed, C, America/New_York, , none, container"},
        {"ppc64le", "TZ=", "", "unsupported, failed, 34088681472, unsupported, failed, C, UTC, , none, no"},
        {"broken", "TZ=CET-1CEST container=podman", "",
         "unsupported, failed, failed, failed, failed, C, CET-1CEST, , none, container"},
        {"no such machine", "", "KVMKVMKVM", "unsupported, failed, failed, failed, failed, C, UTC, , none, kvm"},
        {"no such machine", "", "Unheard Of", "unsupported, failed, failed, failed, failed, C, UTC, , none, unknown"},
        {"qemu", "", "", "unsupported, 1, failed, failed, failed, C, UTC, , none, qemu"},
        {"flagged", "", "", "unsupported, failed, failed, failed, failed, C, UTC, , none, unknown"},
    };
    for (const auto& [machine, environment, signature, expected] : cases) {
        variables.clear();
        std::istringstream words(environment);
        for (std::string word; words >> word;)
            variables[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
        const std::string root = sample(machine);
        std::string told = outcome(readers::release, machine) + ", " + outcome(readers::processors, machine) + ", " +
                           outcome(readers::memory_bytes, machine) + ", " +
                           outcome(readers::memory_available, machine) + ", " + outcome(readers::boot_seconds, machine);
        host::text value{};
        readers::locale(look_up, value);
        told += std::string(", ") + value.data();
        const host::answer zoned = readers::time_zone(root.c_str(), look_up, value);
        told += zoned == host::answer::found ? std::string(", ") + value.data() : ", no zone";
        readers::desktop(look_up, value);
        told += std::string(", ") + value.data();
        readers::display(look_up, value);
        told += std::string(", ") + value.data();
        readers::virtualized(root.c_str(), look_up, signature, value);
        EXPECT_EQ(told + ", " + value.data(), expected) << machine;
    }
}

TEST(LinuxFacts, LinesLongerThanTheBufferAreCut)
{
    support::ScratchFolder folder;
    const std::string long_line(10000, 'x');
    support::write_file(folder.file("lines"), "first\n" + long_line + "\n\n" + std::string(4096, 'y') + "\nlast");
    host::files::line_file file(folder.path().c_str(), "/lines");
    std::vector<std::string> lines;
    for (std::string_view line; file.next(line);)
        lines.emplace_back(line.substr(0, 5));
    EXPECT_EQ(lines, (std::vector<std::string>{"first", "xxxxx", "", "yyyyy", "last"}));
}
