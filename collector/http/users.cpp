#include "users.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sodium.h>
#include <stdexcept>
#include <unistd.h>

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

/// The file appears whole or not at all: a server that reads it meanwhile finds the old one or the new one.
void replace_file(const std::string& file, const std::string& text)
{
    const std::string made = file + ".new";
    const int out = open(made.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const bool written =
        out >= 0 && write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(out) == 0;
    if (out >= 0)
        close(out);
    if (!written || std::rename(made.c_str(), file.c_str()) != 0)
        throw fault("the file of users " + file + " cannot be written");
}

} // namespace

Users::Users(std::string file) : m_file(std::move(file))
{
    if (configured())
        lines_of(m_file, "users");
}

bool Users::is_right(const std::string& name, const std::string& password)
{
    // A hash of nothing in particular: an unknown name takes as long as a wrong password.
    static const std::string nobody = hashed_password("nobody");
    std::lock_guard hold(m_lock);
    std::string hash = nobody;
    bool known = false;
    for (const std::string& line : lines_of(m_file, "users")) {
        const size_t colon = line.find(':');
        if (colon == name.size() && line.compare(0, colon, name) == 0) {
            hash = line.substr(colon + 1);
            known = true;
        }
    }
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0 && known;
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
    replace_file(file, text + name + ":" + hashed_password(password) + "\n");
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

std::string Logins::open(Clock::time_point now)
{
    unsigned char bytes[32];
    char secret[sizeof bytes * 2 + 1];
    randombytes_buf(bytes, sizeof bytes);
    sodium_bin2hex(secret, sizeof secret, bytes, sizeof bytes);
    std::lock_guard hold(m_lock);
    std::erase_if(m_open, [&](const auto& login) { return now - login.second > lasts; });
    m_open[hash_of(secret)] = now;
    return secret;
}

bool Logins::is_open(const std::string& secret, Clock::time_point now)
{
    std::lock_guard hold(m_lock);
    const auto login = m_open.find(hash_of(secret));
    if (login == m_open.end() || now - login->second > lasts)
        return false;
    login->second = now;
    return true;
}

void Logins::end(const std::string& secret)
{
    std::lock_guard hold(m_lock);
    m_open.erase(hash_of(secret));
}

} // namespace http
