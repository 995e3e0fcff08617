// Hashes, identifiers and reachability, over lumo's crypt and the facts that host/ supplies.
#include "AnalyticsSDK/Identity.h"

#include "AnalyticsSDK/SystemInfo.h"
#include "host/host.h"
#include "lumo/crypt.h"
#include "lumo/strings.h"

namespace AnalyticsSDK {

bool GenerateHash(const char* text, scoped_array<unsigned char>& record, long& length)
{
    return lumo::generate_hash(text, record, length);
}

bool TestHash(const char* text, const unsigned char* record, long length)
{
    return lumo::test_hash(text, record, length);
}

namespace {

constexpr std::size_t uuid_length = 36;

// Writes the text of a fresh identifier, or the empty one. Allocates nothing: a probe must answer without memory too.
void WriteUuid(char (&text)[uuid_length + 1])
{
    char* out = text;
    // Rather no identifier than a predictable one: two machines with the same would count as one.
    if (host::uuid_bytes bytes{}; host::facts().uuid(bytes) == host::answer::found)
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            // 8-4-4-4-12 digits, as RFC 4122 writes them, in lower case: servers compare identifiers byte by byte.
            if (at == 4 || at == 6 || at == 8 || at == 10)
                *out++ = '-';
            *out++ = lumo::hexadecimal_digits[bytes[at] >> 4];
            *out++ = lumo::hexadecimal_digits[bytes[at] & 15];
        }
    *out = '\0';
}

} // namespace

std::string GenerateUuid()
{
    char text[uuid_length + 1];
    WriteUuid(text);
    return text;
}

std::int32_t GetUUID(char* buffer, unsigned int size)
{
    char text[uuid_length + 1];
    WriteUuid(text);
    lumo::sprintf_safe(buffer, size, "%s", text);
    return PROBE_DONE;
}

bool IsOnline()
{
    // A failure counts as offline: the caller then keeps its data for later and loses nothing.
    std::uint32_t flags = 0;
    if (host::facts().reachability(flags) != host::answer::found)
        return false;
    return (flags & host::flag_reachable) != 0 && (flags & host::flag_connection_required) == 0;
}

} // namespace AnalyticsSDK
