#include "support/death.h"

namespace support {

static std::string literal(std::string_view text)
{
    std::string pattern;
    for (char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos)
            pattern += '\\';
        pattern += c;
    }
    return pattern;
}

std::string assertion_pattern(std::string_view file, std::string_view text)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    return literal(file) + "[^:]*:[0-9]+: failed assertion `" + literal(text) + "'";
}

} // namespace support
