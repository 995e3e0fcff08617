// The contract between the library and an operating system: the facts about the machine. SystemInfo.cpp and
// Identity.cpp make texts of them, with one code for all systems.
//
// Each folder beside this header fills the contract for one system; a test replaces the whole source by made-up facts.
//
// What holds for every call: any thread may call at any time, several at once too. The call takes microseconds and
// never blocks: no packet, no name look-up, no other program. It takes no lock of the library, throws nothing,
// allocates nothing that outlives it, and keeps no state that a caller could see. The result is one of #answer:
//
// - found: every output parameter holds the value.
// - unsupported: this machine or system has no source for the fact; the same call may be repeated, with the same
// result.
// - failed: the source exists and could not be read or understood; a later call may succeed.
//
// With any answer but found the output parameters hold unspecified values, which the caller must not use.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace AnalyticsSDK::host {

/// Whether a fact could be read. The numbers are those of the probes' statuses.
enum class answer : std::int32_t
{
    found = 0,       ///< the output parameters hold the fact
    unsupported = 1, ///< no such source on this machine
    failed = 2       ///< the source exists and could not be read
};

/// A selector of `source::selector` from its four characters: selector("sysv").
constexpr std::uint32_t selector(const char (&name)[5])
{
    std::uint32_t code = 0;
    for (int at = 0; at < 4; ++at)
        code = code << 8 | static_cast<unsigned char>(name[at]);
    return code;
}

/// A name as the system gives it: UTF-8 with a terminator. Longer names count as failed, never as a part.
using text = std::array<char, 256>;

/// Texts that the kernel holds under a sysctl name.
enum class sysctl_name
{
    hw_model,     ///< the maker's identifier of the model
    kern_hostname ///< the machine's host name
};

/// The processor as the system knows it: by a name, or by a code that the table of families translates.
struct processor_identity
{
    bool named;        ///< `name` holds; otherwise `code` does
    std::int32_t code; ///< selector 'cput'
    text name;         ///< as the kernel reports it
};

/// Ticks that one processor spent since the machine started.
struct processor_load
{
    std::uint64_t user, system, idle;
};

/// Receives one processor's counters, on the thread that called `source::loads`; `context` is what was passed there.
/// Must not throw.
using load_visitor = void(void* context, const processor_load& load);

/// The pager's counts, in pages, read at about one moment.
struct page_counts
{
    std::uint64_t free, active, inactive, wired;
};

/// The first mounted volume, which is the one the system started from.
struct volume
{
    std::uint64_t block_size;       ///< bytes
    std::uint64_t blocks;           ///< all of them
    std::uint64_t available_blocks; ///< those that an ordinary user may still fill
};

/// Facts that are texts, told in the system's own words.
enum class text_fact
{
    system,         ///< the family: "linux", "darwin"
    system_version, ///< the release's own name or number: "Debian GNU/Linux 12 (bookworm)", "14.5"
    kernel,         ///< the kernel's release
    machine,        ///< the processor's instruction set: "x86_64", "aarch64"
    locale,         ///< language and territory: "de_DE"; "C" where none is chosen
    time_zone,      ///< the zone's name: "Europe/Berlin"
    desktop,        ///< the desktop that the process runs in; empty without one
    display,        ///< "wayland", "x11", "none"
    virtualized,    ///< "container", a hypervisor's name, "no"
    count
};

/// Facts that are numbers.
enum class number_fact
{
    processors,       ///< those that run
    memory,           ///< bytes
    memory_available, ///< bytes that programs can still get without swapping
    boot_seconds,     ///< since the machine started
    count
};

/// Bits of `source::reachability`.
inline constexpr std::uint32_t flag_reachable = 2, flag_connection_required = 4;

/// The 16 bytes of a random (version 4) UUID, first byte first.
using uuid_bytes = std::array<unsigned char, 16>;

/// The facts. No member is ever null.
struct source
{
    /// A number by its code: 'sysv' (packed version), 'sys1' to 'sys3', 'sysa' (architecture), 'mclk' (MHz), 'ramm'
    /// (megabytes). Any other code is unsupported.
    answer (*selector)(std::uint32_t code, std::int32_t& value);
    /// The first processor. Found sets `named`, and `name` or `code` accordingly.
    answer (*processor)(processor_identity& identity);
    /// A text of the kernel, not empty. Unsupported where the system has no such name.
    answer (*sysctl_text)(sysctl_name name, text& value);
    /// Calls `visit` once for every processor, before it returns. With an answer other than found it may have visited
    /// some; the caller drops their counters.
    answer (*loads)(load_visitor* visit, void* context);
    /// The size of a page of memory in bytes, not 0.
    answer (*page_size)(std::uint64_t& bytes);
    /// The pager's counts; their unit is the size that `page_size` gives.
    answer (*pages)(page_counts& counts);
    /// The start-up volume; its block size is not 0.
    answer (*first_volume)(volume& start_up);
    /// The name that the owner gave the machine, not empty.
    answer (*computer_name)(text& value);
    /// Whether the routing tables lead to the network: sets the flag_ bits. Called while the caller holds a lock of the
    /// web client, so it must not call back into the library.
    answer (*reachability)(std::uint32_t& flags);
    /// A new UUID from the system's random bytes, with version 4 and the variant of RFC 4122 set. Never waits for
    /// entropy: without enough of it, failed.
    answer (*uuid)(uuid_bytes& bytes);
    answer (*fact_text)(text_fact fact, text& value);
    answer (*fact_number)(number_fact fact, std::uint64_t& value);
};

/// The running system's source; defined once per system. Any thread, also before and after main(); always the same.
const source& system_facts();

/// The source that a test has put in place of the system's. Atomic, because worker threads read it meanwhile.
inline std::atomic<const source*> replacement{nullptr};

/// The source in force. Any thread.
inline const source& facts()
{
    const source* made_up = replacement.load(std::memory_order_acquire);
    return made_up ? *made_up : system_facts();
}

/// For tests: answers come from `made_up` from now on, from the system again with null. The record must outlive its
/// use by every thread. Returns what was in force before, null for the system.
inline const source* replace_facts(const source* made_up)
{
    return replacement.exchange(made_up, std::memory_order_acq_rel);
}

} // namespace AnalyticsSDK::host
