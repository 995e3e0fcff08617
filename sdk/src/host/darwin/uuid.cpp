// Random identifiers: the system's own service, which sets version and variant.
#include <uuid/uuid.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::uuid(uuid_bytes& bytes)
{
    uuid_generate_random(bytes.data());
    return answer::found;
}

} // namespace AnalyticsSDK::host
