// The unique-id file: the characters of an installation's id and nothing else, made once and never rewritten.
#pragma once

#include <string>

namespace AnalyticsSDK::UniqueIdFile {

/// Reads the id as it stands, up to the first NUL: a line feed in the file is part of the id. A file that begins with a
/// NUL holds the empty id; of one without any, 64 KiB count.
///
/// False, and `id` unchanged, when the file is missing, empty or cannot be read.
bool Load(const std::string& path, std::string& id);

/// Makes the file, whole or not at all, also when the process dies half way or several make it at once.
///
/// True when this call made it. False when there was something at the path already (whatever it holds, it stays), when
/// the file cannot be made, and for an empty id.
bool Create(const std::string& path, const std::string& id);

/// Deletes the file, or the link at that path; devices and folders are left alone. @return false when it is still there
bool Delete(const std::string& path);

} // namespace AnalyticsSDK::UniqueIdFile
