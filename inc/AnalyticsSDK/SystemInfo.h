// Facts about the computer that the library runs on, as short texts.
//
// Every probe has one contract. It takes a buffer and its size in chars, terminator included, and returns a status
// (AnalyticsSDK::ProbeStatus). The caller owns the buffer; nothing is allocated that outlives the call, nothing is
// remembered between calls, nothing blocks: no name look-up, no other program, no packet.
//
// - Text is UTF-8, written with a terminator. Text that does not fit gives the empty string and status 0; only
//   GetModel, GetDomainWorkGroup and GetSystemName answer 2 instead and leave the buffer alone.
// - The constants (GetOSName, GetManufacturer, GetBIOS, GetFreeRAM, GetArchitectureType) abort the process when
//   they do not fit: give them 16 chars.
// - With any status but 0 the buffer is not written, so set its first char to NUL before the call.
// - Any thread may call any probe at any time.
#pragma once

#include <cstdint>

#include "lumo/tova/base.h"

namespace AnalyticsSDK {

/// What a probe returns.
enum ProbeStatus : std::int32_t
{
    PROBE_DONE = 0,                ///< The buffer holds the value.
    PROBE_UNSUPPORTED = 1,         ///< This machine has no source for the fact.
    PROBE_FAILED = 2,              ///< The system could not read the fact.
    PROBE_VERSION_UNREADABLE = 402 ///< Only #GetOSVersion: the system's version could not be read.
};

/// Writes "mac" on every system. Deliberate: servers know this family of hosts by that name.
TOVA_API std::int32_t GetOSName(char* buffer, unsigned int size);

/// Writes the system's version as "major.minor.fix", for example "10.4.11"; on Linux the kernel's, "6.1.0".
TOVA_API std::int32_t GetOSVersion(char* buffer, unsigned int size);

/// Writes the maker's identifier of the machine's model, for example "PowerMac7,2". 1 where no firmware tells it.
TOVA_API std::int32_t GetModel(char* buffer, unsigned int size);

/// Writes the processor architecture: "ppc", "x86", "68K" or "unknown".
TOVA_API std::int32_t GetArchitectureType(char* buffer, unsigned int size);

/// Writes the processor's family, for example "PPC G5", or its name where the system reports a name instead of a code.
///
/// Deliberate: a processor code outside the table of families gives the empty text and status 0, so that a newer
/// processor counts as a machine without a family name and not as a failure.
TOVA_API std::int32_t GetCPUType(char* buffer, unsigned int size);

/// Writes the processor's clock in whole megahertz, "1800 MHz". 1 where the kernel reports none.
TOVA_API std::int32_t GetCPUClockSpeed(char* buffer, unsigned int size);

/// Writes the share of time that all processors were busy since the machine started, "12.37%": not the present load.
TOVA_API std::int32_t GetCPUUsage(char* buffer, unsigned int size);

/// Writes the physical memory in units of 1,048,576 bytes, "2048 MB".
TOVA_API std::int32_t GetTotalRAM(char* buffer, unsigned int size);

/// Always writes "0 MB". Deliberate: servers expect the key, and no figure was ever sent under it.
TOVA_API std::int32_t GetFreeRAM(char* buffer, unsigned int size);

/// Writes the memory that the pager manages (free, active, inactive and wired) in units of 1,048,576 bytes, "2047.75
/// MB".
TOVA_API std::int32_t GetTotalVirtualMemory(char* buffer, unsigned int size);

/// Writes the pager's free memory in units of 1,048,576 bytes, "612.44 MB".
///
/// Deliberate: computed in 32 bits, so that the figure wraps at 4,096 MB, unlike the total, because the figures stored
/// so far were computed that way.
TOVA_API std::int32_t GetFreeVirtualMemory(char* buffer, unsigned int size);

/// Writes the size of the start-up volume in units of 1,000,000,000 bytes, "159.90 GB".
TOVA_API std::int32_t GetTotalHardDrive(char* buffer, unsigned int size);

/// Writes what an ordinary user may still fill of the start-up volume, in units of 1,000,000,000 bytes, "40.12 GB".
TOVA_API std::int32_t GetFreeHardDrive(char* buffer, unsigned int size);

/// Writes the offset of local time from UTC, "+01:00" east and "-05:00" west of Greenwich.
///
/// Deliberate: the sign is that of the hours alone, so a zone less than an hour west gives "+00:30", as in all stored
/// events.
TOVA_API std::int32_t GetTimeZone(char* buffer, unsigned int size);

/// Writes "Apple" on every system. Deliberate: servers' reports were made for that maker's machines.
TOVA_API std::int32_t GetManufacturer(char* buffer, unsigned int size);

/// The same as #GetManufacturer: "Apple".
TOVA_API std::int32_t GetBIOS(char* buffer, unsigned int size);

/// Writes the machine's host name as the kernel gives it, for example "office-mac.local". Nothing is looked up.
TOVA_API std::int32_t GetDomainWorkGroup(char* buffer, unsigned int size);

/// Writes the name that the machine's owner gave it, for example "Front Desk"; on Linux the host name.
TOVA_API std::int32_t GetSystemName(char* buffer, unsigned int size);

/// Not supported on any system so far: returns 1 and leaves the buffer alone.
TOVA_API std::int32_t GetHardDriveSerialNumber(char* buffer, unsigned int size);

/// Writes a fresh random identifier (see #GenerateUuid); 36 chars, so the buffer takes 37. Returns 0, always.
TOVA_API std::int32_t GetUUID(char* buffer, unsigned int size);

} // namespace AnalyticsSDK
