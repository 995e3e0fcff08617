// The kernel's small text files, read without allocating.
#pragma once

#include <cstddef>
#include <string_view>

namespace AnalyticsSDK::host::files {

/// A text file, read line by line through a buffer of its own.
class line_file
{
public:
    /// Opens `path` under the folder `root` ("" for the machine itself; a test has its sample machines elsewhere).
    line_file(const char* root, const char* path);
    line_file(const line_file&) = delete;
    line_file& operator=(const line_file&) = delete;
    ~line_file();

    bool is_open() const { return descriptor >= 0; }

    /// Hands out the next line without its line feed, valid until the next call; false at the end. A line longer than
    /// the buffer is cut and its rest skipped: no fact is that far to the right.
    bool next(std::string_view& line);

private:
    bool refill();

    int descriptor;
    bool passing_over = false; // the next bytes are the rest of a line that was cut
    std::size_t begin = 0;
    std::size_t end = 0;
    char buffer[4096];
};

/// The text without leading and trailing blanks, tabs and NULs (which end the device tree's texts).
std::string_view trim(std::string_view text);

/// Takes "key : value" apart, both trimmed. False for a line without a colon.
bool split_pair(std::string_view line, std::string_view& key, std::string_view& value);

} // namespace AnalyticsSDK::host::files
