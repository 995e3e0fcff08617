#include "host/streams.h"

namespace AnalyticsSDK::host {

// This system's standard library offers no descriptor to mark, so a program started during a download inherits the
// file.
void open_for_writing(std::ofstream& file, const char* path)
{
    file.open(path, std::ios::out | std::ios::binary | std::ios::trunc);
}

} // namespace AnalyticsSDK::host
