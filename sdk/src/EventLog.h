// The event log file: one line per event, appended by any number of threads and processes, read and deleted whole.
//
// Every function takes the log's lock by itself. A path is opened for each operation and never kept open,
// so the host may move or delete the file at any time.
#pragma once

#include <string>
#include <string_view>

namespace AnalyticsSDK::EventLog {

/// Appends a line, which brings its line feed, in one write. A line is written whole or not at all.
///
/// Failure is silent towards hosts by contract: the event is lost, earlier lines are not. If the file does not end with
/// a line feed (a process was killed while it wrote), one is written first, so that the unfinished line does not spoil
/// the new one.
/// @param synced forces the line onto the disk as well @return whether it was written
bool Append(const std::string& path, std::string_view line, bool synced = false);

/// What Read() found.
enum class Content
{
    none,      ///< no file
    whole,     ///< all of it was read; it may be empty
    unreadable ///< there is a file, but not all of it could be read: it must be neither sent nor deleted
};

/// Reads the file into `text`: up to the first NUL, without the blanks (only blanks) at its end.
///
/// `size` receives the file's length in bytes, also when the text is shorter than the file; 0 unless whole. Files of 4
/// GB and more count as unreadable.
Content Read(const std::string& path, std::string& text, unsigned long& size);

/// Deletes the file, or the link at that path; devices and folders are left alone. No other code deletes the log.
void Delete(const std::string& path);

} // namespace AnalyticsSDK::EventLog
