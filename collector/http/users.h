/// @file
/// Who may look at the page: a file of names with hashed passwords, one of bearer tokens.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace http {

/// The lines "NAME:HASH" of a file, hashed by Argon2id (libsodium's crypto_pwhash_str). Any thread.
class Users
{
public:
    /// @param file empty: nobody has to log in @throws std::runtime_error with a sentence when it cannot be read
    explicit Users(std::string file);
    bool configured() const { return !m_file.empty(); }
    /// Takes tens of milliseconds and 64 MiB on purpose, for a name that is unknown as well; one at a time.
    bool is_right(const std::string& name, const std::string& password);
    /// What the file has for a name; none for one that is not in it.
    ///
    /// The file is looked at again once a second at most. While it cannot be read the users stay as they were.
    std::optional<std::string> password_hash(const std::string& name);

    /// Adds a name, or gives it a new password; the file is replaced whole, mode 0600.
    /// @throws std::runtime_error with a sentence
    static void add(const std::string& file, const std::string& name, const std::string& password);

private:
    void load();
    const std::string m_file;
    std::mutex m_lock;    ///< of what follows
    std::mutex m_hashing; ///< one password at a time
    std::map<std::string, std::string> m_hashes;
    struct stat m_read
    {};                  ///< the file's, when it was read
    time_t m_looked = 0; ///< at the file, by the monotonic clock
};

/// Tokens for programs that read the figures, one a line of a file ("#" begins a comment). Any thread.
class Tokens
{
public:
    /// @param file empty: none @throws std::runtime_error with a sentence when it cannot be read
    explicit Tokens(const std::string& file);
    /// Whether this value of an Authorization field bears one of them (RFC 6750, 2.1). Compared in constant time.
    bool is_right(const std::string& authorization) const;

private:
    std::vector<std::string> m_hashes;
};

} // namespace http
