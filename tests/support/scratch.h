// A folder of its own for a test, and whole files in one call.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A new, empty folder below the system's temporary folder; it goes, with all it holds, when this object goes.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    /// The path of a file of that name in the folder; the file need not exist.
    std::string file(std::string_view name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

/// The whole file, byte for byte; empty when it cannot be read.
std::string read_file(const std::string& path);
/// Replaces the file. Fails the running test when that is not possible.
void write_file(const std::string& path, std::string_view text);
/// The lines without their line feeds. A last line that lacks its line feed counts as a line.
std::vector<std::string> split_lines(std::string_view text);

} // namespace support
