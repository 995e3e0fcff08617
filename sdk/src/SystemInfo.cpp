// The text rules of the machine facts: one code for every system, over the facts that host/ supplies.
#include "AnalyticsSDK/SystemInfo.h"

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "host/host.h"
#include "lumo/strings.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/tova.h"

namespace AnalyticsSDK {

using host::answer;
using host::facts;
using host::selector;

namespace {

// Memory counts in powers of two and disks in powers of ten, as their makers do.
constexpr double bytes_to_megabytes = 1.0 / 1048576;
constexpr double bytes_to_gigabytes_divisor = 1000000000.0;

// Sources and probes use the same numbers, so a failure is passed on unchanged.
std::int32_t Status(answer given)
{
    return static_cast<std::int32_t>(given);
}

// "%.2f" with a point whatever the host's locale is, because the text ends up in events.
std::int32_t PrintFraction(char* buffer, unsigned int size, double value, const char* unit)
{
    char digits[340]; // the largest double has 309 digits before the point
    const auto end = std::to_chars(digits, digits + sizeof digits - 1, value, std::chars_format::fixed, 2).ptr;
    *end = '\0';
    lumo::sprintf_safe(buffer, size, "%s%s", digits, unit);
    return PROBE_DONE;
}

// For the texts that a system call would write straight into the caller's buffer: too small a buffer is a failed call.
std::int32_t CopyName(char* buffer, unsigned int size, answer given, const host::text& value)
{
    if (given != answer::found)
        return Status(given);
    const std::size_t length = std::strlen(value.data());
    if (length >= size)
        return PROBE_FAILED;
    std::memcpy(buffer, value.data(), length + 1);
    return PROBE_DONE;
}

std::int32_t SysctlText(char* buffer, unsigned int size, host::sysctl_name name)
{
    host::text value{};
    return CopyName(buffer, size, facts().sysctl_text(name, value), value);
}

// One reading, so that "%d" is never printed of a value that nobody filled.
std::int32_t PrintSelector(char* buffer, unsigned int size, std::uint32_t code, const char* unit)
{
    std::int32_t value = 0;
    if (const answer given = facts().selector(code, value); given != answer::found)
        return Status(given);
    lumo::sprintf_safe(buffer, size, "%d%s", value, unit);
    return PROBE_DONE;
}

struct version
{
    std::int32_t major, minor, fix;
};

// Four binary-coded-decimal digits could not count past 10.9.9, so from 10.4 on three plain selectors tell the version.
bool ReadVersion(version& read)
{
    // Read first: an old system has no other selector.
    std::int32_t packed = 0;
    if (facts().selector(selector("sysv"), packed) != answer::found)
        return false;
    if (packed < 0x1040) {
        read = {(packed >> 12 & 15) * 10 + (packed >> 8 & 15), packed >> 4 & 15, packed & 15};
        return true;
    }
    return facts().selector(selector("sys1"), read.major) == answer::found &&
           facts().selector(selector("sys2"), read.minor) == answer::found &&
           facts().selector(selector("sys3"), read.fix) == answer::found;
}

// The codes of one family are scattered, because processors were numbered as they came out.
constexpr struct
{
    std::int32_t first, last;
    const char* name;
} families[] = {
    {0, 4, "680x0"},           {0x101, 0x101, "PPC 601"}, {0x103, 0x103, "PPC 603"}, {0x106, 0x107, "PPC 603"},
    {0x104, 0x104, "PPC 604"}, {0x109, 0x10A, "PPC 604"}, {0x108, 0x108, "PPC G3"},  {0x120, 0x120, "PPC G3"},
    {0x10C, 0x10C, "PPC G4"},  {0x110, 0x112, "PPC G4"},  {0x139, 0x139, "PPC G5"},  {0x13C, 0x13C, "PPC G5"},
};

// A code outside the table has an empty family, which is no failure; the header says why.
const char* FamilyName(std::int32_t code)
{
    for (const auto& family : families)
        if (code >= family.first && code <= family.last)
            return family.name;
    return "";
}

// Newer architectures have no code that the server would know, so they are unknown to it and no failure.
const char* ArchitectureName(std::int32_t code)
{
    switch (code) {
    case 1:
        return "68K";
    case 2:
        return "ppc";
    case 10:
        return "x86";
    default:
        return "unknown";
    }
}

// 64 bits, because a large machine's 32-bit counters overflow their sum within days. Ticks of programs that yield to
// others (nice) are left out of both sides of the share, as they always were.
void AddLoad(void* context, const host::processor_load& load)
{
    auto& sum = *static_cast<host::processor_load*>(context);
    sum.user += load.user;
    sum.system += load.system;
    sum.idle += load.idle;
}

// The page size stays 0 when only that query fails; the counts are read all the same. 1 when both answered.
int GetVMInfo(host::page_counts& counts, std::uint64_t& page_size)
{
    const bool sized = facts().page_size(page_size) == answer::found;
    if (!sized)
        page_size = 0;
    const bool counted = facts().pages(counts) == answer::found;
    return sized && counted ? 1 : 0;
}

std::int32_t PrintVolume(char* buffer, unsigned int size, std::uint64_t host::volume::*blocks)
{
    host::volume start_up{};
    if (const answer given = facts().first_volume(start_up); given != answer::found)
        return Status(given);
    // In whole bytes first: a division of blocks would round what the unit then shows.
    const std::uint64_t bytes = start_up.block_size * (start_up.*blocks);
    return PrintFraction(buffer, size, static_cast<double>(bytes) / bytes_to_gigabytes_divisor, " GB");
}

} // namespace

std::int32_t GetOSName(char* buffer, unsigned int size)
{
    tova_strcpy(buffer, size, "mac");
    return PROBE_DONE;
}

std::int32_t GetOSVersion(char* buffer, unsigned int size)
{
    // A status of its own, since a report without a version cannot be assigned to a release.
    version read{};
    if (!ReadVersion(read))
        return PROBE_VERSION_UNREADABLE;
    lumo::sprintf_safe(buffer, size, "%d.%d.%d", read.major, read.minor, read.fix);
    return PROBE_DONE;
}

std::int32_t GetModel(char* buffer, unsigned int size)
{
    return SysctlText(buffer, size, host::sysctl_name::hw_model);
}

std::int32_t GetArchitectureType(char* buffer, unsigned int size)
{
    std::int32_t code = 0;
    if (const answer given = facts().selector(selector("sysa"), code); given != answer::found)
        return Status(given);
    tova_strcpy(buffer, size, ArchitectureName(code));
    return PROBE_DONE;
}

std::int32_t GetCPUType(char* buffer, unsigned int size)
{
    host::processor_identity identity{};
    if (const answer given = facts().processor(identity); given != answer::found)
        return Status(given);
    // A newer machine gives its processor's name, which says more than a family; only a code needs the table.
    const char* name = identity.named ? identity.name.data() : FamilyName(identity.code);
    lumo::sprintf_safe(buffer, size, "%s", name);
    return PROBE_DONE;
}

std::int32_t GetCPUClockSpeed(char* buffer, unsigned int size)
{
    return PrintSelector(buffer, size, selector("mclk"), " MHz");
}

std::int32_t GetCPUUsage(char* buffer, unsigned int size)
{
    host::processor_load sum{};
    if (const answer given = facts().loads(AddLoad, &sum); given != answer::found)
        return Status(given);
    const auto busy = static_cast<double>(sum.user + sum.system);
    const auto all = static_cast<double>(sum.user + sum.system + sum.idle);
    // Deliberate: without any processor this is 0/0, written as the C library prints it, because servers take that text
    // for "no answer".
    return PrintFraction(buffer, size, busy / (all / 100), "%");
}

std::int32_t GetTotalRAM(char* buffer, unsigned int size)
{
    return PrintSelector(buffer, size, selector("ramm"), " MB");
}

// The pager's free memory says little about what a program could still allocate, so no figure was ever sent; the key is
// kept because readers of the events expect it.
std::int32_t GetFreeRAM(char* buffer, unsigned int size)
{
    tova_strcpy(buffer, size, "0 MB");
    return PROBE_DONE;
}

std::int32_t GetTotalVirtualMemory(char* buffer, unsigned int size)
{
    host::page_counts counts{};
    std::uint64_t page_size = 0;
    if (!GetVMInfo(counts, page_size))
        return PROBE_FAILED;
    // Of the pager's lists, not of the machine: what the kernel took for itself at the start is on none of them.
    const std::uint64_t bytes = (counts.free + counts.active + counts.inactive + counts.wired) * page_size;
    return PrintFraction(buffer, size, static_cast<double>(bytes) * bytes_to_megabytes, " MB");
}

std::int32_t GetFreeVirtualMemory(char* buffer, unsigned int size)
{
    host::page_counts counts{};
    std::uint64_t page_size = 0;
    if (!GetVMInfo(counts, page_size))
        return PROBE_FAILED;
    // Deliberate: 32 bits, unlike the total; the header says why.
    const auto bytes = static_cast<std::uint32_t>(counts.free * page_size);
    return PrintFraction(buffer, size, bytes * bytes_to_megabytes, " MB");
}

std::int32_t GetTotalHardDrive(char* buffer, unsigned int size)
{
    return PrintVolume(buffer, size, &host::volume::blocks);
}

std::int32_t GetFreeHardDrive(char* buffer, unsigned int size)
{
    return PrintVolume(buffer, size, &host::volume::available_blocks);
}

std::int32_t GetTimeZone(char* buffer, unsigned int size)
{
    // The zone in force for this process, daylight saving included, as the time stamps of its files have it.
    // The zone's name may be too long for tova_time, and is not wanted.
    const int bias = -tova::minutes_east();
    const int hours = bias / 60;
    const int minutes = std::abs(bias - hours * 60);
    // Deliberate: the hours alone choose the sign, so half an hour west is "+00:30"; the header says why.
    lumo::sprintf_safe(buffer, size, -hours >= 0 ? "+%2.2d:%2.2d" : "%2.2d:%2.2d", -hours, minutes);
    return PROBE_DONE;
}

std::int32_t GetManufacturer(char* buffer, unsigned int size)
{
    tova_strcpy(buffer, size, "Apple");
    return PROBE_DONE;
}

// The firmware is the maker's own on these machines, so one name serves for both.
std::int32_t GetBIOS(char* buffer, unsigned int size)
{
    return GetManufacturer(buffer, size);
}

std::int32_t GetDomainWorkGroup(char* buffer, unsigned int size)
{
    return SysctlText(buffer, size, host::sysctl_name::kern_hostname);
}

std::int32_t GetSystemName(char* buffer, unsigned int size)
{
    host::text value{};
    return CopyName(buffer, size, facts().computer_name(value), value);
}

// No system tells it to an ordinary program in one way for all kinds of disks.
std::int32_t GetHardDriveSerialNumber(char*, unsigned int)
{
    return PROBE_UNSUPPORTED;
}

} // namespace AnalyticsSDK
