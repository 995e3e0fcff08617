// The start-up volume: the file system mounted at the root.
#include <sys/statvfs.h>

#include "host/sources.h"

namespace AnalyticsSDK::host {

answer sources::first_volume(volume& start_up)
{
    struct statvfs root;
    if (statvfs("/", &root) != 0)
        return answer::failed;
    // Counts are in fragments; f_bsize is only the size that reads and writes should have.
    start_up = {root.f_frsize, root.f_blocks, root.f_bavail};
    return answer::found;
}

} // namespace AnalyticsSDK::host
