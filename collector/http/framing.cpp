#include "framing.h"

#include <algorithm>
#include <charconv>

namespace http {

namespace {

bool is_chunked(std::string_view value)
{
    constexpr std::string_view chunked = "chunked";
    return std::equal(value.begin(), value.end(), chunked.begin(), chunked.end(),
                      [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; });
}

} // namespace

Framing framing_of(const Request& head)
{
    Framing framing;
    const size_t lengths = head.count("content-length"), codings = head.count("transfer-encoding");
    if (codings > 0) {
        framing.is_chunked = true;
        if (codings > 1 || !is_chunked(*head.field("transfer-encoding")))
            framing.fault = "the only Transfer-Encoding taken is \"chunked\"";
        else if (lengths > 0)
            framing.fault = "a request has a Content-Length or a Transfer-Encoding, not both";
        return framing;
    }
    if (lengths == 0)
        return framing;
    const std::string& text = *head.field("content-length");
    const char* end = text.data() + text.size();
    // from_chars takes a minus for signed types only, and no plus or blank: what is left is a plain decimal.
    if (lengths > 1)
        framing.fault = "the Content-Length is repeated";
    else if (const auto read = std::from_chars(text.data(), end, framing.length);
             read.ec != std::errc() || read.ptr != end)
        framing.fault = "the Content-Length is no plain decimal number";
    return framing;
}

} // namespace http
