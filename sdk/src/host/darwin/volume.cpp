// The start-up volume: the first of the mounted file systems.
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/ucred.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::first_volume(volume& start_up)
{
    // Room for exactly one entry, and no waiting for fresh figures from a server that may be gone.
    struct statfs first;
    if (getfsstat(&first, sizeof first, MNT_NOWAIT) < 1)
        return answer::failed;
    start_up = {first.f_bsize, first.f_blocks, first.f_bavail};
    return answer::found;
}

} // namespace AnalyticsSDK::host
