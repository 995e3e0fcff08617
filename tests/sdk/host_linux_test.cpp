// The Linux facts: on this machine against independent readings, and on samples of what other machines' kernels write.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>

#include "AnalyticsSDK/Identity.h"
#include "AnalyticsSDK/SystemInfo.h"
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

std::string with_unit(double amount, const char* format)
{
    char text[64];
    std::snprintf(text, sizeof text, format, amount);
    return text;
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
    if (given != host::answer::found)
        return given == host::answer::unsupported ? "unsupported" : "failed";
    if constexpr (std::is_same_v<Value, host::text>)
        return value.data();
    else
        return std::to_string(value);
}

std::size_t open_descriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

} // namespace

TEST(LinuxFacts, AgreeWithWhatTheMachinesOwnToolsSay)
{
    EXPECT_EQ(read(GetOSVersion),
              shell("uname -r | sed -E 's/^([0-9]+)\\.([0-9]+)(\\.([0-9]+))?.*/\\1.\\2.\\4/; s/\\.$/.0/'"));
    EXPECT_EQ(
        read(GetArchitectureType),
        shell("case $(uname -m) in x86_64|i?86) echo x86;; ppc*) echo ppc;; m68k) echo 68K;; *) echo unknown;; esac"));
    EXPECT_EQ(read(GetDomainWorkGroup), shell("uname -n"));
    EXPECT_EQ(read(GetSystemName), shell("uname -n"));
    EXPECT_EQ(read(GetTimeZone), shell("date +%z | sed -E 's/(..)$/:\\1/'"));
    EXPECT_EQ(read(GetTotalRAM), shell("awk '/^MemTotal:/ { printf \"%d MB\", $2 / 1024 }' /proc/meminfo"));
    const double physical = std::stod(shell("getconf _PHYS_PAGES")) * std::stod(shell("getconf PAGESIZE"));
    EXPECT_NEAR(std::stod(read(GetTotalVirtualMemory)), physical / 1048576, 0.05);
    EXPECT_EQ(read(GetTotalHardDrive),
              with_unit(std::stod(shell("df -B1 --output=size / | tail -n 1")) / 1e9, "%.2f GB"));
}

// What changes from one moment to the next is compared with some room.
TEST(LinuxFacts, MovingFactsAreNearAnIndependentReading)
{
    EXPECT_NEAR(std::stod(read(GetFreeHardDrive)), std::stod(shell("df -B1 --output=avail / | tail -n 1")) / 1e9, 5);
    const double used = std::stod(
        shell("awk '/^cpu[0-9]/ { busy += $2 + $4; all += $2 + $4 + $5 } END { print busy * 100 / all }' /proc/stat"));
    EXPECT_NEAR(std::stod(read(GetCPUUsage)), used, 2);
    const double free = std::fmod(std::stod(shell("awk '/^MemFree:/ { print $2 / 1024 }' /proc/meminfo")), 4096);
    const double apart = std::fabs(std::stod(read(GetFreeVirtualMemory)) - free);
    EXPECT_LT(std::min(apart, 4096 - apart), 1024);
}

TEST(LinuxFacts, TheProcessorIsTheOneThatTheKernelReports)
{
    const std::string name = shell("sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1");
    EXPECT_TRUE(name.empty() || read(GetCPUType) == name) << read(GetCPUType);
    const std::string clock = shell("sed -n 's/^cpu MHz[^:]*: //p' /proc/cpuinfo | head -n 1");
    EXPECT_TRUE(clock.empty() || read(GetCPUClockSpeed).ends_with(" MHz")) << read(GetCPUClockSpeed);
    const std::string model = shell("cat /sys/class/dmi/id/product_name || tr -d '\\0' </proc/device-tree/model");
    EXPECT_EQ(read(GetModel), model.empty() ? "status 1" : model);
}

TEST(LinuxFacts, SampleMachinesAreWhatTheirKernelsAndFirmwareTell)
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
    const std::pair<const char*, std::int32_t> architectures[] = {
        {"x86_64", 10}, {"i686", 10}, {"ppc64le", 2}, {"ppc", 2}, {"m68k", 1}, {"aarch64", 0}, {"riscv64", 0}, {"", 0}};
    for (const auto& [machine, code] : architectures)
        EXPECT_EQ(readers::architecture_code(machine), code) << machine;
}

TEST(LinuxFacts, SampleLoadsAreThoseOfEveryProcessorAndNotTheirSum)
{
    // Processors, user, system, idle: the sums, or that there is no answer.
    const auto read_sums = [](const char* machine) -> std::vector<std::uint64_t> {
        std::vector<std::uint64_t> all(4);
        const auto add = [](void* context, const host::processor_load& load) {
            auto& to = *static_cast<std::vector<std::uint64_t>*>(context);
            to = {to[0] + 1, to[1] + load.user, to[2] + load.system, to[3] + load.idle};
        };
        if (readers::loads(sample(machine).c_str(), add, &all) != host::answer::found)
            all.clear();
        return all;
    };
    using sums = std::vector<std::uint64_t>;
    EXPECT_EQ(read_sums("aarch64"), (sums{2, 1678 + 1679, 2156 + 2157, 681196 + 681197}));
    const sums large = read_sums("x86_64-large");
    ASSERT_EQ(large.size(), 4u);
    EXPECT_EQ(large[0], 300u);
    EXPECT_EQ(large[1], 300u * 1000 + 299 * 300 / 2);
    EXPECT_EQ(large[3], 300 * std::uint64_t{4000000000});
    EXPECT_EQ(read_sums("container"), sums(4));
    for (const char* none : {"broken", "no such machine"})
        EXPECT_EQ(read_sums(none), sums());
}

TEST(LinuxFacts, SampleMemoryAddsUpToAllOfIt)
{
    const auto pages = [](const std::string& machine, std::uint64_t page_size, host::page_counts& counts) {
        return readers::pages(sample(machine).c_str(), page_size, counts);
    };
    host::page_counts counts{};
    ASSERT_EQ(pages("aarch64", 4096, counts), host::answer::found);
    EXPECT_EQ(counts.free, 302112u / 4);
    EXPECT_EQ(counts.active, 803328u / 4);
    EXPECT_EQ(counts.inactive, 2422848u / 4);
    EXPECT_EQ(counts.free + counts.active + counts.inactive + counts.wired, 3884448u / 4);
    ASSERT_EQ(pages("ppc64le", 65536, counts), host::answer::found);
    EXPECT_EQ(counts.wired, (33289728u - 32000000u) / 64);
    ASSERT_EQ(pages("container", 4096, counts), host::answer::found);
    EXPECT_EQ(counts.wired, 0u); // more free than there is: the figures were not read at one instant
    EXPECT_EQ(pages("broken", 4096, counts), host::answer::failed);
    EXPECT_EQ(outcome(readers::memory_megabytes, "aarch64"), "3793");
    EXPECT_EQ(outcome(readers::memory_megabytes, "broken"), "failed");
}

TEST(LinuxFacts, KernelReleasesNeedNotHaveThreeNumbersOfOneDigit)
{
    const struct
    {
        const char* release;
        std::vector<std::int32_t> numbers;
    } cases[] = {{"6.1.0-13-amd64", {6, 1, 0}},
                 {"6.18.144-fc", {6, 18, 144}},
                 {"5.10-custom", {5, 10, 0}},
                 {"7", {7, 0, 0}},
                 {"7.x", {7, 0, 0}},
                 {"4.4.0.1", {4, 4, 0}},
                 {"custom", {}},
                 {"", {}}};
    for (const auto& [release, expected] : cases) {
        std::int32_t numbers[3];
        const bool read = host::parse_version(release, numbers);
        EXPECT_EQ(read ? std::vector<std::int32_t>(numbers, numbers + 3) : std::vector<std::int32_t>(), expected)
            << release;
    }
}

TEST(LinuxFacts, LinesLongerThanTheBufferAreCutAndTheNextOneIsWhole)
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

TEST(LinuxFacts, AMachineWithoutARouteIsOffline)
{
    const int status = support::run({"unshare", "-n", "true"}).status;
    if (status != 0)
        GTEST_SKIP() << "making a network without routes needs root";
    support::Child child([] { return unshare(CLONE_NEWNET) == 0 && !IsOnline() ? 0 : 1; });
    ASSERT_TRUE(child.wait());
    EXPECT_EQ(child.status(), 0);
    const bool default_route = !shell("ip route show default; ip -6 route show default").empty();
    EXPECT_EQ(IsOnline(), default_route);
}

TEST(LinuxFacts, ProbesLeaveNothingOpen)
{
    const auto read_all = [] {
        for (Probe* probe : {GetOSVersion, GetModel, GetArchitectureType, GetCPUType, GetCPUClockSpeed, GetCPUUsage,
                             GetTotalRAM, GetTotalVirtualMemory, GetFreeVirtualMemory, GetTotalHardDrive,
                             GetFreeHardDrive, GetTimeZone, GetDomainWorkGroup, GetSystemName, GetUUID})
            read(probe);
        IsOnline();
    };
    read_all();
    const std::size_t before = open_descriptors();
    for (int round = 0; round < 20; ++round)
        read_all();
    EXPECT_EQ(open_descriptors(), before);
}
