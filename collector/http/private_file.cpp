#include "private_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sodium.h>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace http {
namespace {

constexpr size_t secret_least = 32;

std::runtime_error fault(const char* kind, const std::string& file, const char* what)
{
    return std::runtime_error(std::string("the file of ") + kind + " " + file + " cannot be " + what + ": " +
                              std::strerror(errno));
}

void write_file(const std::string& file, int flags, const std::string& text, const char* kind)
{
    const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
    const bool written =
        out >= 0 && write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(out) == 0;
    const int number = errno;
    if (out >= 0)
        close(out);
    errno = number;
    if (!written)
        throw fault(kind, file, "written");
}

} // namespace

void replace_file(const std::string& file, const std::string& text, const char* kind)
{
    const std::string made = file + ".new";
    write_file(made, O_TRUNC, text, kind);
    if (std::rename(made.c_str(), file.c_str()) != 0)
        throw fault(kind, file, "written");
}

void append_line(const std::string& file, const std::string& line, const char* kind)
{
    write_file(file, O_APPEND, line, kind);
}

std::string passing_secret()
{
    unsigned char bytes[secret_least];
    char digits[sizeof bytes * 2 + 1];
    randombytes_buf(bytes, sizeof bytes);
    return sodium_bin2hex(digits, sizeof digits, bytes, sizeof bytes);
}

void make_secret(const std::string& file)
{
    // Deliberate: a secret that is there is never replaced, as every login and every forgotten id hangs on it.
    write_file(file, O_EXCL, passing_secret() + "\n", "the secret");
}

std::string read_secret(const std::string& file)
{
    struct stat info
    {};
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    if (stat(file.c_str(), &info) != 0 || !in || !(text << in.rdbuf()))
        throw fault("the secret", file, "read");
    if ((info.st_mode & 077) != 0)
        throw std::runtime_error("the file of the secret " + file + " may be read by others: chmod 600 it");
    std::string secret = text.str();
    secret.erase(secret.find_last_not_of("\r\n") + 1);
    if (secret.size() < secret_least)
        throw std::runtime_error("the secret in " + file +
                                 " has less than 32 bytes: make one by "
                                 "\"analytics-collector secret new FILE\"");
    return secret;
}

} // namespace http
