#include "terminal.h"

#include "wire_line.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace terminal {

namespace {

// Whether it is a terminal with control sequences.
bool is_able(int descriptor)
{
    const char* kind = std::getenv("TERM");
    return isatty(descriptor) && kind && std::strcmp(kind, "dumb") != 0;
}

bool takes_colours(int descriptor)
{
    const char* forbidden = std::getenv("NO_COLOR");
    return is_able(descriptor) && !(forbidden && *forbidden);
}

unsigned columns(int descriptor)
{
    winsize size{};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace

bool colours()
{
    return takes_colours(STDOUT_FILENO);
}

unsigned width()
{
    return isatty(STDOUT_FILENO) ? columns(STDOUT_FILENO) : 0;
}

unsigned error_width()
{
    if (!is_able(STDERR_FILENO))
        return 0;
    unsigned known = columns(STDERR_FILENO);
    return known ? known : 80;
}

std::string bold(std::string_view text)
{
    return colours() ? "\x1b[1m" + std::string(text) + "\x1b[0m" : std::string(text);
}

void error(std::string_view text)
{
    bool red = takes_colours(STDERR_FILENO);
    std::cerr << (red ? "\x1b[31m" : "") << "analytics: " << wire::printable(text) << (red ? "\x1b[0m" : "")
              << std::endl;
}

namespace {

bool read_all(int file, std::string& text)
{
    char piece[65536];
    ssize_t count;
    while ((count = read(file, piece, sizeof piece)) != 0) {
        if (count < 0 && errno != EINTR)
            return false;
        text.append(piece, count > 0 ? static_cast<size_t>(count) : 0);
    }
    return true;
}

} // namespace

bool read_file(const std::string& path, std::string& text)
{
    int file = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    bool whole = file >= 0 && read_all(file, text);
    if (!whole)
        error(path + ": " + std::strerror(errno));
    if (file > STDERR_FILENO)
        close(file);
    return whole;
}

} // namespace terminal
