#include "BatchName.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <utility>

#include "host/host.h"
#include "lumo/strings.h"

namespace AnalyticsSDK {
namespace {

constexpr size_t id_digits = 32, time_digits = 12;
constexpr std::string_view extensions[] = {".batch", ".dropped", ".tmp"};

bool IsLowerHex(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

/// A decimal number without leading zeros, as std::to_string gives it.
bool ReadNumber(std::string_view text, uint64_t& number)
{
    const char* end = text.data() + text.size();
    if (text.empty() || (text.size() > 1 && text.front() == '0'))
        return false;
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && rest == end;
}

bool TakePrefix(std::string_view& text, std::string_view prefix)
{
    const bool has = text.substr(0, prefix.size()) == prefix;
    if (has)
        text.remove_prefix(prefix.size());
    return has;
}

/// Now, and later than at the call before: what one process seals in a millisecond keeps its order.
uint64_t NextMoment_ms()
{
    using namespace std::chrono;
    static std::atomic<uint64_t> last{0};
    const auto now = static_cast<uint64_t>(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
    uint64_t before = last, next;
    do
        next = now > before || before - now > 1000 ? now : before + 1; // a clock that was set back is followed
    while (!last.compare_exchange_weak(before, next));
    return next;
}

} // namespace

std::string BatchName::NewId()
{
    host::uuid_bytes random{};
    if (host::facts().uuid(random) != host::answer::found)
        return {};
    unsigned char bytes[16];
    uint64_t now = NextMoment_ms();
    for (int at = 5; at >= 0; --at) {
        bytes[at] = static_cast<unsigned char>(now);
        now >>= 8;
    }
    // Ten bytes of the UUID, without its bytes 6 and 8, in which version and variant are fixed bits.
    std::copy_n(random.begin(), 6, bytes + 6);
    std::copy_n(random.begin() + 9, 4, bytes + 12);
    std::string id;
    lumo::append_hexadecimal(bytes, sizeof bytes, id);
    return id;
}

int64_t BatchName::SealedAt_ms() const
{
    int64_t time_ms = 0;
    std::from_chars(id.data(), id.data() + std::min(time_digits, id.size()), time_ms, 16);
    return time_ms;
}

std::string FileOf(std::string_view log, const BatchName& name, BatchKind kind)
{
    return std::string(log) + '.' + name.id + '.' + std::to_string(name.first) +
           std::string(extensions[static_cast<size_t>(kind)]);
}

std::optional<std::pair<BatchName, BatchKind>> ReadFileName(std::string_view file, std::string_view log)
{
    BatchName name;
    if (!TakePrefix(file, log) || !TakePrefix(file, ".") || file.size() < id_digits)
        return std::nullopt;
    name.id = file.substr(0, id_digits);
    file.remove_prefix(id_digits);
    const size_t dot = file.rfind('.');
    if (!std::all_of(name.id.begin(), name.id.end(), IsLowerHex) || !TakePrefix(file, ".") || dot == file.npos ||
        dot == 0)
        return std::nullopt;
    const auto* extension = std::find(std::begin(extensions), std::end(extensions), file.substr(dot - 1));
    if (extension == std::end(extensions) || !ReadNumber(file.substr(0, dot - 1), name.first))
        return std::nullopt;
    return std::pair(std::move(name), static_cast<BatchKind>(extension - std::begin(extensions)));
}

} // namespace AnalyticsSDK
