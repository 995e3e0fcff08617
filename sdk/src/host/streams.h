/// @file
/// File streams as a library must open them.
#pragma once

#include <fstream>

namespace AnalyticsSDK::host {

/// Opens a file for writing from its start, created or truncated, and closed in programs that the host starts. Whether
/// that worked is the stream's to tell.
void OpenForWriting(std::ofstream& file, const char* path);

} // namespace AnalyticsSDK::host
