// The text rules of the machine facts, on machines that are made up.
#include "AnalyticsSDK/SystemInfo.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

#include "AnalyticsSDK/Identity.h"
#include "made_up_facts.h"
#include "support/comma_locale.h"
#include "support/death.h"
#include "support/zone.h"

using namespace AnalyticsSDK;

namespace {

using Probe = std::int32_t(char*, unsigned int);

// The text of a probe, after its status when that is not 0.
std::string read(Probe* probe, unsigned int size = 64)
{
    char buffer[300] = "untouched";
    const std::int32_t status = probe(buffer, size);
    return status == 0 ? buffer : std::to_string(status) + " " + buffer;
}

void old_machine(MadeUpFacts& facts)
{
    facts.selectors = {{"sysv", 0x1040}, {"sys1", 10},   {"sys2", 4},   {"sys3", 11},
                       {"sysa", 2},      {"mclk", 1800}, {"ramm", 2048}};
    facts.processor = {false, 0x139, {}};
    facts.model = {"PowerMac7,2"};
    facts.host_name = {"office-mac.local"};
    facts.computer_name = {"Front Desk"};
    facts.loads = {{100, 50, 900}, {0, 0, 0}};
    facts.page_size = 4096;
    facts.pages = {156785, 200000, 100000, 67439};
    facts.volume = {4096, 39038085, 9794921};
    facts.uuid = {0x6f, 0x1c, 0x2a, 0x90, 0x3b, 0x7e, 0x4d, 0x25, 0x9a, 0x61, 0x0c, 0x4e, 0x8b, 0x7d, 0x2f, 0x13};
}

// What the old machine says; a buffer one short of it gets `short_answer`, or the process aborts when that is null.
const struct
{
    Probe* probe;
    const char *text, *short_answer;
} old_machine_texts[] = {
    {GetOSVersion, "10.4.11", ""},
    {GetCPUType, "PPC G5", ""},
    {GetCPUClockSpeed, "1800 MHz", ""},
    {GetCPUUsage, "14.29%", ""},
    {GetTotalRAM, "2048 MB", ""},
    {GetTotalVirtualMemory, "2047.75 MB", ""},
    {GetFreeVirtualMemory, "612.44 MB", ""},
    {GetTotalHardDrive, "159.90 GB", ""},
    {GetFreeHardDrive, "40.12 GB", ""},
    {GetUUID, "6f1c2a90-3b7e-4d25-9a61-0c4e8b7d2f13", ""},
    {GetModel, "PowerMac7,2", "2 untouched"},
    {GetDomainWorkGroup, "office-mac.local", "2 untouched"},
    {GetSystemName, "Front Desk", "2 untouched"},
    {GetOSName, "mac", nullptr},
    {GetManufacturer, "Apple", nullptr},
    {GetBIOS, "Apple", nullptr},
    {GetFreeRAM, "0 MB", nullptr},
    {GetArchitectureType, "ppc", nullptr},
};

} // namespace

TEST(SystemInfo, TextsNeedRoomForTheirTerminator)
{
    MadeUpFacts facts;
    old_machine(facts);
    for (const auto& [probe, text, short_answer] : old_machine_texts) {
        const auto fits = static_cast<unsigned int>(std::strlen(text)) + 1;
        EXPECT_EQ(read(probe, fits), text);
        if (short_answer) {
            EXPECT_EQ(read(probe, fits - 1), short_answer) << text;
        }
    }
    EXPECT_EQ(read(GetTotalRAM, UINT_MAX), "2048 MB"); // more than the formatter counts
    EXPECT_ASSERTION(read(GetOSName, 3), "inc/lumo/tova/text.cpp", "false");
    const CommaLocale in_force; // a host's decimal comma changes nothing
    EXPECT_EQ(read(GetTotalHardDrive), "159.90 GB");
}

TEST(SystemInfo, AnswersOtherThanFoundLeaveTheBufferAlone)
{
    MadeUpFacts facts;
    const auto expect = [&](Probe* probe, int failed, int unsupported) {
        facts.missing = host::answer::failed;
        EXPECT_EQ(read(probe), std::to_string(failed) + " untouched");
        facts.missing = host::answer::unsupported;
        EXPECT_EQ(read(probe), std::to_string(unsupported) + " untouched");
    };
    expect(GetOSVersion, 402, 402);
    for (Probe* probe : {GetModel, GetArchitectureType, GetCPUType, GetCPUClockSpeed, GetCPUUsage, GetTotalRAM,
                         GetTotalHardDrive, GetFreeHardDrive, GetDomainWorkGroup, GetSystemName})
        expect(probe, 2, 1);
    facts.page_size = 4096; // one of the two queries is not enough
    expect(GetTotalVirtualMemory, 2, 2);
    facts.page_size.reset();
    facts.pages = {1, 2, 3, 4};
    expect(GetFreeVirtualMemory, 2, 2);
    expect(GetHardDriveSerialNumber, 1, 1);
    EXPECT_EQ(read(GetUUID), ""); // no random bytes, no identifier
}

TEST(SystemInfo, VersionsBelow10_4AreUnpacked)
{
    const struct
    {
        std::map<std::string, std::int32_t> selectors;
        const char* text;
    } cases[] = {
        {{{"sysv", 0x0922}}, "9.2.2"},
        {{{"sysv", 0x103F}, {"sys1", 1}, {"sys2", 2}, {"sys3", 3}}, "10.3.15"},
        {{{"sysv", 0x1040}, {"sys1", 10}, {"sys2", 4}, {"sys3", 0}}, "10.4.0"},
        {{{"sysv", 0x7FFF}, {"sys1", 6}, {"sys2", 18}, {"sys3", 144}}, "6.18.144"},
        {{{"sys1", 10}, {"sys2", 4}, {"sys3", 0}}, "402 untouched"},
        {{{"sysv", 0x1040}, {"sys2", 4}, {"sys3", 0}}, "402 untouched"},
        {{{"sysv", 0x1040}, {"sys1", 10}, {"sys3", 0}}, "402 untouched"},
        {{{"sysv", 0x1040}, {"sys1", 10}, {"sys2", 4}}, "402 untouched"},
    };
    for (const auto& [selectors, text] : cases) {
        MadeUpFacts facts;
        facts.selectors = selectors;
        EXPECT_EQ(read(GetOSVersion), text);
    }
}

TEST(SystemInfo, KnownCodesHaveNames)
{
    MadeUpFacts facts;
    std::map<std::string, std::string> codes; // by name, in hexadecimal
    for (std::int32_t code = -3; code < 0x200; ++code) {
        facts.processor = {false, code, {}};
        facts.selectors["sysa"] = code;
        char text[16];
        std::snprintf(text, sizeof text, " %x", static_cast<unsigned>(code));
        for (Probe* probe : {GetCPUType, GetArchitectureType})
            if (const std::string name = read(probe); !name.empty() && name != "unknown")
                codes[name] += text;
    }
    using names = decltype(codes);
    EXPECT_EQ(codes, (names{{"680x0", " 0 1 2 3 4"},
                            {"PPC 601", " 101"},
                            {"PPC 603", " 103 106 107"},
                            {"PPC 604", " 104 109 10a"},
                            {"PPC G3", " 108 120"},
                            {"PPC G4", " 10c 110 111 112"},
                            {"PPC G5", " 139 13c"},
                            {"68K", " 1"},
                            {"ppc", " 2"},
                            {"x86", " a"}}));
    EXPECT_EQ(read(GetCPUType), "");
    EXPECT_EQ(read(GetArchitectureType), "unknown");
    facts.processor = {true, 0, {"100%s AMD \xC3\x89PYC"}}; // a name is written as the system gives it
    EXPECT_EQ(read(GetCPUType), "100%s AMD \xC3\x89PYC");
}

TEST(SystemInfo, UsageIsTheShareSinceTheStartOverAllProcessors)
{
    MadeUpFacts facts;
    const std::uint64_t large = 0xFFFFFFFFu;
    facts.loads = {{large, large, large}, {large, large, large}};
    EXPECT_EQ(read(GetCPUUsage), "66.67%");
    facts.loads.emplace(); // no processors: what no number is, as the system writes it
    volatile double none = 0;
    char as_printed[16];
    std::snprintf(as_printed, sizeof as_printed, "%.2f%%", none / (none / 100));
    EXPECT_EQ(read(GetCPUUsage), as_printed);
}

TEST(SystemInfo, OnlyFreeMemoryStartsOverAt4GiB)
{
    MadeUpFacts facts;
    facts.page_size = 4096;
    facts.pages = {1048576 + 256, 0, 0, 0};
    EXPECT_EQ(read(GetTotalVirtualMemory), "4097.00 MB");
    EXPECT_EQ(read(GetFreeVirtualMemory), "1.00 MB");
    facts.pages = {1048575, 1048576, 1048576, 1048576};
    EXPECT_EQ(read(GetTotalVirtualMemory), "16384.00 MB");
    EXPECT_EQ(read(GetFreeVirtualMemory), "4096.00 MB");
    facts.volume = {65536, 0x100000000, 15259}; // in decimal gigabytes
    EXPECT_EQ(read(GetTotalHardDrive), "281474.98 GB");
    EXPECT_EQ(read(GetFreeHardDrive), "1.00 GB");
}

TEST(SystemInfo, TheZonesSignIsThatOfItsHours)
{
    const struct
    {
        const char* zone; // as POSIX writes it: hours west of Greenwich
        const char* text;
    } cases[] = {{"XXX0", "+00:00"},    {"XXX-1", "+01:00"},
                 {"XXX5", "-05:00"},    {"XXX-5:30", "+05:30"},
                 {"XXX3:30", "-03:30"}, {"XXX0:30", "+00:30"},
                 {"XXX-14", "+14:00"},  {"AZoneWhoseNameIsLongerThanARecordHolds-2", "+02:00"}};
    for (const auto& [zone, text] : cases) {
        const support::Zone in_force(zone);
        EXPECT_EQ(read(GetTimeZone), text) << zone;
        EXPECT_EQ(read(GetTimeZone, 6), "");
    }
}
