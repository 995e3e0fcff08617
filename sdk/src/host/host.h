/// @file
/// What an operating system must tell about the machine: facts only. Turning them into text is not the system's
/// business but SystemInfo.cpp's and Identity.cpp's, one code for all systems.
///
/// Each folder beside this header fills the contract for one system. A test replaces the whole source with made-up
/// facts. Every function may be called on any thread, takes microseconds, never blocks, and keeps nothing.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace AnalyticsSDK::host {

/// Whether a fact could be read. The numbers are those of the probes' statuses.
enum class answer : std::int32_t
{
    found = 0,
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

/// Receives one processor's counters; `context` is the caller's own.
using load_visitor = void(void* context, const processor_load& load);

/// The pager's books, in pages.
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

/// Bits of `source::reachability`.
inline constexpr std::uint32_t flag_reachable = 2, flag_connection_required = 4;

/// The 16 bytes of a random (version 4) UUID, first byte first.
using uuid_bytes = std::array<unsigned char, 16>;

/// The facts. No member is ever null.
struct source
{
    /// 'sysv' (packed version), 'sys1' to 'sys3', 'sysa' (architecture), 'mclk' (MHz), 'ramm' (megabytes).
    answer (*selector)(std::uint32_t code, std::int32_t& value);
    answer (*processor)(processor_identity& identity);
    answer (*sysctl_text)(sysctl_name name, text& value);
    /// Visits every processor once. With an answer other than found some may have been visited, which do not count.
    answer (*loads)(load_visitor* visit, void* context);
    answer (*page_size)(std::uint64_t& bytes);
    answer (*pages)(page_counts& counts);
    answer (*first_volume)(volume& start_up);
    answer (*computer_name)(text& value);
    /// The system's judgement whether the network can be reached, from its routing tables and without a packet.
    answer (*reachability)(std::uint32_t& flags);
    answer (*uuid)(uuid_bytes& bytes);
};

/// The running system's source; defined once per system.
const source& system_facts();

/// Stands in for the system while a test wants it so. Atomic, because worker threads ask while a test replaces.
inline std::atomic<const source*> replacement{nullptr};

/// The source to ask.
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
