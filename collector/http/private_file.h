/// @file
/// Files that are nobody else's: passwords' hashes, keys, secrets. Written whole, safely on the disk, mode 0600.
#pragma once

#include <string>

namespace http {

// All throw std::runtime_error with a sentence in which `kind` says whose file it is ("users").

/// The file appears whole or not at all: a server that reads it meanwhile finds the old one or the new one.
void replace_file(const std::string& file, const std::string& text, const char* kind);
/// One write at the end of the file: two commands at once do not mix their lines.
void append_line(const std::string& file, const std::string& line, const char* kind);

/// Makes a secret of 256 random bits as 64 hexadecimal digits in a file that must not be there yet.
void make_secret(const std::string& file);
/// The bytes of such a file, or of any other with at least 32, without line breaks at their end; refused when anybody
/// but its owner may read it.
std::string read_secret(const std::string& file);
/// As make_secret() makes it, for as long as this process lives.
std::string passing_secret();

} // namespace http
