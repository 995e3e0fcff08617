// The event text as it must be, written a second time and as plainly as can be: the fuzzers compare byte by byte.
#pragma once

#include "fuzz.h"

#include <string>

namespace model {

// Escapes as the log file's readers know them: these five and no other.
inline std::string escaped(std::string_view text)
{
    std::string out;
    for (char byte : text) {
        switch (byte) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += byte;
        }
    }
    return out;
}

inline std::string in_quotes(std::string_view text)
{
    return '"' + escaped(text) + '"';
}

inline std::string in_quotes_or_null(const char* text)
{
    return text ? in_quotes(text) : "null";
}

// The fuzzers never leave the "C" locale, so printf says what is right.
inline std::string number(double value)
{
    char text[40];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

// A byte is encoded unless it is printable ASCII up to "z" and not among these.
inline std::string percent(std::string_view text)
{
    std::string out;
    for (unsigned char byte : text) {
        char code[4];
        snprintf(code, sizeof code, "%%%02x", byte);
        const bool kept =
            byte >= '!' && byte <= 'z' &&
            std::string_view(";/?:@&=+$\"<>%\\^[]`,#_").find(static_cast<char>(byte)) == std::string::npos;
        kept ? out += static_cast<char>(byte) : out += code;
    }
    return out;
}

/// What every line of the event log file says of its session.
struct Session
{
    std::string application, version, id;
};

/// Compares one line, its line feed included; the time is judged by its shape only.
inline void check_line(const Session& session, const std::string& name, const std::string& object, std::string line)
{
    const std::string shape = "0000-00-00 00:00:00";
    const size_t at = std::string_view("[ 3, \"").size();
    fuzz::require("the line holds a time", line.size() > at + shape.size());
    for (size_t i = 0; i < shape.size(); ++i)
        fuzz::require("the time's shape",
                      shape[i] == '0' ? isdigit(static_cast<unsigned char>(line[at + i])) : shape[i] == line[at + i]);
    line.replace(at, shape.size(), shape);
    fuzz::same("the line of the event log file",
               "[ 3, \"" + shape + "\", " + in_quotes(session.application) + ", " + in_quotes(session.version) + ", " +
                   in_quotes(session.id) + ", " + name + ", " + object + " ]\n",
               line);
}

} // namespace model
