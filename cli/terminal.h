// What the command prints: colours and shortened lines only on a terminal.
#pragma once

#include <string>
#include <string_view>

namespace terminal {

/// Standard output is a terminal that takes colours (and NO_COLOR does not forbid them).
bool colours();
/// The columns of the terminal that standard output is; 0 when it is none.
unsigned width();
/// The columns of the terminal that standard error is, when a line there can be overwritten; else 0.
unsigned error_width();

std::string bold(std::string_view text);

/// One line on standard error, "analytics: ..." in front, in red on a terminal. Control bytes in the text, which may
/// hold file names and addresses, are made printable.
void error(std::string_view text);

/// The whole file, or standard input for "-". False, with the reason reported, when it cannot be read.
bool read_file(const std::string& path, std::string& text);

} // namespace terminal
