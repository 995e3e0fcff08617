/// @file
/// The keys of upload addresses: which application's lines may come to /u/KEY.
#pragma once

#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace http {

/// The lines "KEY APPLICATION" of a file, or "KEY *" for any application. Blank lines and lines that begin with "#" are
/// comments. Any thread.
class Keys
{
public:
    /// @param file empty: no keys are configured @throws std::runtime_error with a sentence when it cannot be read
    explicit Keys(std::string file);
    bool configured() const { return !m_file.empty(); }
    /// The application of a key, "*" for any; none when there is no such key.
    ///
    /// The file is looked at again once a second at most: a key that is taken out of it is refused from then on. While
    /// it cannot be read the keys stay as they were.
    std::optional<std::string> application(const std::string& key);

    /// Makes a key of 128 random bits, appends its line to the file and gives it back.
    /// @throws std::runtime_error with a sentence
    static std::string make(const std::string& file, const std::string& application);

private:
    bool load();
    const std::string m_file;
    std::mutex m_lock;
    std::unordered_map<std::string, std::string> m_applications;
    timespec m_changed{}; ///< the file's, when it was read
    time_t m_looked = 0;  ///< at the file, by the monotonic clock
};

} // namespace http
