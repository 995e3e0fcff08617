#include "users.h"

#include "private_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sodium.h>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace http {
namespace {

std::runtime_error fault(const std::string& what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

std::vector<std::string> lines_of(const std::string& file, const char* kind)
{
    std::ifstream in(file);
    if (!in)
        throw fault(std::string("the file of ") + kind + " " + file + " cannot be read");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    return lines;
}

std::string hash_of(const std::string& text)
{
    unsigned char hash[crypto_generichash_BYTES];
    crypto_generichash(hash, sizeof hash, reinterpret_cast<const unsigned char*>(text.data()), text.size(), nullptr, 0);
    return std::string(reinterpret_cast<const char*>(hash), sizeof hash);
}

std::string hashed_password(const std::string& password)
{
    char hash[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str(hash, password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                          crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
        throw std::runtime_error("there is no memory to hash the password");
    return hash;
}

} // namespace

Users::Users(std::string file) : m_file(std::move(file))
{
    if (configured()) {
        lines_of(m_file, "users");
        load();
    }
}

// A file that is replaced keeps its time when that is as coarse as the kernel's tick, but not its number.
void Users::load()
{
    struct stat info
    {};
    if (stat(m_file.c_str(), &info) != 0 ||
        (info.st_mtim.tv_sec == m_read.st_mtim.tv_sec && info.st_mtim.tv_nsec == m_read.st_mtim.tv_nsec &&
         info.st_ino == m_read.st_ino && info.st_size == m_read.st_size))
        return;
    std::map<std::string, std::string> hashes;
    for (const std::string& line : lines_of(m_file, "users"))
        if (const size_t colon = line.find(':'); colon != std::string::npos)
            hashes[line.substr(0, colon)] = line.substr(colon + 1);
    m_hashes = std::move(hashes);
    m_read = info;
}

std::optional<std::string> Users::password_hash(const std::string& name)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    std::lock_guard hold(m_lock);
    if (configured() && std::exchange(m_looked, now.tv_sec) != now.tv_sec) {
        try {
            load();
        } catch (const std::runtime_error&) {
            // Looked at again a second later.
        }
    }
    const auto entry = m_hashes.find(name);
    return entry == m_hashes.end() ? std::nullopt : std::optional(entry->second);
}

bool Users::is_right(const std::string& name, const std::string& password)
{
    // A hash of nothing in particular: an unknown name takes as long as a wrong password.
    static const std::string nobody = hashed_password("nobody");
    {
        std::lock_guard hold(m_lock);
        m_looked = 0; // somebody who was added this very second is let in
    }
    const auto hash = password_hash(name);
    std::lock_guard hold(m_hashing);
    return crypto_pwhash_str_verify(hash.value_or(nobody).c_str(), password.data(), password.size()) == 0 && hash;
}

void Users::add(const std::string& file, const std::string& name, const std::string& password)
{
    if (name.empty() || name.find_first_of(":\r\n#") != std::string::npos)
        throw std::runtime_error("a name is not empty and has no colon, no # and no line break");
    if (password.empty())
        throw std::runtime_error("the password is empty");
    std::string text;
    if (access(file.c_str(), F_OK) == 0)
        for (const std::string& line : lines_of(file, "users"))
            if (line.compare(0, name.size() + 1, name + ":") != 0)
                text += line + "\n";
    replace_file(file, text + name + ":" + hashed_password(password) + "\n", "users");
}

Tokens::Tokens(const std::string& file)
{
    if (!file.empty())
        for (const std::string& token : lines_of(file, "tokens"))
            m_hashes.push_back(hash_of(token));
}

bool Tokens::is_right(const std::string& authorization) const
{
    static const std::string scheme = "bearer ";
    const bool is_bearer = authorization.size() > scheme.size() &&
                           std::equal(scheme.begin(), scheme.end(), authorization.begin(),
                                      [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b + 32 : b); });
    const std::string hash = hash_of(is_bearer ? authorization.substr(scheme.size()) : std::string());
    bool right = false;
    for (const std::string& known : m_hashes)
        right |= sodium_memcmp(known.data(), hash.data(), hash.size()) == 0;
    return right && is_bearer;
}

} // namespace http
