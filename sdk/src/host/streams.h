// Opening file streams that programs of the host do not inherit.
#pragma once

#include <fstream>

namespace AnalyticsSDK::host {

/// Opens a file for writing from its start, created or truncated, and closed in programs that the host starts. The
/// stream's state tells whether that worked.
void open_for_writing(std::ofstream& file, const char* path);

} // namespace AnalyticsSDK::host
