// Uploads as a collector gets them: many installations, a few versions, forty names, five properties an event.
#pragma once

#include "store/upload.h"

#include <string>
#include <vector>

namespace bench {

/// The lines of upload number `number`: `events` of one installation, about 181 bytes each, logged one second apart.
std::string collector_lines(int number, store::Seconds between = 26, int events = 100);

/// Uploads with a batch each, read by the intake: numbers `first` and following, `between` seconds apart.
std::vector<store::Upload> collector_uploads(int first, int count, store::Seconds between = 26, int events = 100);

/// When the first of them logged.
store::Seconds collector_start();

/// Removes a store's file and its neighbours.
void remove_store(const std::string& path);

/// The reference: the same rows, with texts as they are, into one table of a new file, in one transaction.
/// @return rows a second
double plain_insert(const std::string& path, const std::vector<store::Upload>& uploads);

} // namespace bench
