// Random identifiers: the kernel's random bytes, or the cryptographic library's where the kernel has none yet.
#include <openssl/rand.h>
#include <sys/random.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::uuid(uuid_bytes& bytes)
{
    // Never waiting for entropy: early in a machine's start that would hold up the host.
    const auto size = static_cast<ssize_t>(bytes.size());
    if (getrandom(bytes.data(), bytes.size(), GRND_NONBLOCK) != size &&
        RAND_bytes(bytes.data(), static_cast<int>(size)) != 1)
        return answer::failed;
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40); // version 4: random
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80); // the variant of RFC 4122
    return answer::found;
}

} // namespace AnalyticsSDK::host
