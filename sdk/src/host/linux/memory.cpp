// Memory: /proc/meminfo, whose figures are in units of 1,024 bytes.
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "host/linux/files.h"
#include "host/linux/readers.h"
#include "host/sources.h"

namespace AnalyticsSDK::host {
namespace {

struct kibibytes
{
    std::uint64_t total = 0, available = 0, free = 0, active = 0, inactive = 0;
};

constexpr struct
{
    std::string_view key;
    std::uint64_t kibibytes::*figure;
} figures[] = {
    {"MemTotal", &kibibytes::total}, {"MemAvailable", &kibibytes::available}, {"MemFree", &kibibytes::free},
    {"Active", &kibibytes::active},  {"Inactive", &kibibytes::inactive},
};

// Active and inactive memory stay 0 on a kernel that does not report them; without a total the fact cannot be read.
bool read_figures(const char* root, kibibytes& memory)
{
    files::line_file file(root, "/proc/meminfo");
    // The keys stand in no fixed order, and which of them there are differs between kernels.
    std::string_view line, key, value;
    while (file.is_open() && file.next(line) && files::split_pair(line, key, value))
        for (const auto& wanted : figures)
            if (key == wanted.key)
                std::from_chars(value.data(), value.data() + value.size(), memory.*wanted.figure);
    return memory.total != 0;
}

// A figure that this kernel does not report is 0.
answer bytes_of(const char* root, std::uint64_t kibibytes::*figure, std::uint64_t& bytes)
{
    kibibytes memory;
    if (!read_figures(root, memory))
        return answer::failed;
    bytes = memory.*figure * 1024;
    return bytes != 0 ? answer::found : answer::unsupported;
}

} // namespace

namespace readers {

answer pages(const char* root, std::uint64_t page_size, page_counts& counts)
{
    // No system has pages smaller than the file's unit; the check prevents a division by zero.
    kibibytes memory;
    if (page_size < 1024 || !read_figures(root, memory))
        return answer::failed;
    const std::uint64_t page = page_size / 1024;
    const std::uint64_t listed = memory.free + memory.active + memory.inactive;
    // What is neither free nor on a list of the pager is held by the kernel or locked, which is what wired means. The
    // figures are not read at one instant, so the lists can add up to more than there is.
    const std::uint64_t wired = memory.total - std::min(memory.total, listed);
    counts = {memory.free / page, memory.active / page, memory.inactive / page, wired / page};
    return answer::found;
}

answer memory_megabytes(const char* root, std::int32_t& megabytes)
{
    kibibytes memory;
    if (!read_figures(root, memory))
        return answer::failed;
    // What the kernel keeps for itself at the start is missing, so this is a little less than what is built in.
    megabytes = static_cast<std::int32_t>(memory.total / 1024);
    return answer::found;
}

answer memory_bytes(const char* root, std::uint64_t& bytes)
{
    return bytes_of(root, &kibibytes::total, bytes);
}

answer memory_available(const char* root, std::uint64_t& bytes)
{
    return bytes_of(root, &kibibytes::available, bytes);
}

} // namespace readers

answer sources::memory_bytes(std::uint64_t& bytes)
{
    return readers::memory_bytes("", bytes);
}

answer sources::memory_available(std::uint64_t& bytes)
{
    return readers::memory_available("", bytes);
}

answer sources::page_size(std::uint64_t& bytes)
{
    // Not a constant: some machines have pages of 16 or 64 KiB.
    const long size = sysconf(_SC_PAGESIZE);
    if (size <= 0)
        return answer::failed;
    bytes = static_cast<std::uint64_t>(size);
    return answer::found;
}

answer sources::pages(page_counts& counts)
{
    std::uint64_t bytes = 0;
    const answer sized = page_size(bytes);
    return sized == answer::found ? readers::pages("", bytes, counts) : sized;
}

} // namespace AnalyticsSDK::host
