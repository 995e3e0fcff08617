/// @file
/// Who may look at the page: a file of names with hashed passwords, one of bearer tokens, and the logins that are open.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <string>
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

    /// Adds a name, or gives it a new password; the file is replaced whole, mode 0600.
    /// @throws std::runtime_error with a sentence
    static void add(const std::string& file, const std::string& name, const std::string& password);

private:
    const std::string m_file;
    std::mutex m_lock;
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

/// The logins that are open, by the secret in the browser's cookie. They end with the process, after `lasts` without a
/// request, or by logout. Any thread.
class Logins
{
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::hours lasts{24 * 14};

    /// Opens one. @return the secret, 64 hexadecimal digits
    std::string open(Clock::time_point now = Clock::now());
    bool is_open(const std::string& secret, Clock::time_point now = Clock::now());
    void end(const std::string& secret);

private:
    std::mutex m_lock;
    std::map<std::string, Clock::time_point> m_open; ///< by the secret's hash: a look-up's time tells nothing of it
};

} // namespace http
