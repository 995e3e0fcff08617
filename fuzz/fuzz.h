// What the fuzzers share: how a finding is reported, a scratch folder, bytes turned into values.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size);
extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments);

namespace fuzz {

/// Ends the run with a finding.
[[noreturn]] inline void fail(const char* what, std::string_view expected, std::string_view got)
{
    fprintf(stderr, "FINDING: %s\nexpected %zu: %.*s\ngot      %zu: %.*s\n", what, expected.size(),
            static_cast<int>(expected.size()), expected.data(), got.size(), static_cast<int>(got.size()), got.data());
    abort();
}

inline void same(const char* what, std::string_view expected, std::string_view got)
{
    if (expected != got)
        fail(what, expected, got);
}

inline void same(const char* what, long long expected, long long got)
{
    if (expected != got)
        fail(what, std::to_string(expected), std::to_string(got));
}

inline void require(const char* what, bool holds)
{
    if (!holds)
        fail(what, "true", "false");
}

/// A folder in memory for this process, made on first use; it goes at a regular end.
inline const std::string& scratch()
{
    struct Folder
    {
        std::string path = "/dev/shm/analytics-fuzz-XXXXXX";
        Folder() { require("a scratch folder", mkdtemp(path.data())); }
        ~Folder()
        {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    };
    static Folder folder;
    return folder.path;
}

/// The file from `from` on; empty when it is not there.
inline std::string read_file(const std::string& path, off_t from = 0)
{
    struct stat status;
    int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || fstat(file, &status) != 0)
        return {};
    std::string text(static_cast<size_t>(status.st_size > from ? status.st_size - from : 0), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), from);
    text.resize(static_cast<size_t>(count < 0 ? 0 : count));
    close(file);
    return text;
}

inline void write_file(const std::string& path, std::string_view text)
{
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    require("a file to write to", write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    close(file);
}

} // namespace fuzz
