// Uploads as a collector gets them: many installations, a few versions, forty names, five properties an event.
#pragma once

#include "store/upload.h"

#include <string>
#include <vector>

namespace bench {

/// The lines of upload number `number`: `events` of one installation, about 181 bytes each, logged one second apart.
std::string collector_lines(int number, int events = 100);

/// Uploads with a batch each, read by the intake.
std::vector<store::Upload> collector_uploads(int count, int events = 100);

} // namespace bench
