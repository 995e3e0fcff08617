// tova_uri_decode: any text, any length, any size of the result, against a model.

#include "fuzz.h"
#include "lumo/tova/tova-web.h"

#include <vector>

namespace {

int digit(char c)
{
    if (c >= '0' && c <= '?') // lenient on purpose: the characters after "9" count on
        return c - '0';
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 0;
}

// `text` holds what may be read: up to the terminator or `length`.
std::string decoded(std::string_view text, size_t room)
{
    std::string out;
    for (size_t at = 0; at < text.size() && out.size() < room; ++at) {
        if (text[at] != '%') {
            out += text[at];
        } else if (at + 2 < text.size()) {
            out += static_cast<char>(digit(text[at + 1]) * 16 + digit(text[at + 2]));
            at += 2;
        } else if (at + 1 < text.size()) {
            continue; // one character after it: the "%" is dropped, the character stays
        }
    }
    return out;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    const unsigned room = input.ConsumeIntegralInRange(1u, 600u);
    const unsigned length = input.ConsumeIntegralInRange(0u, 600u);
    const std::string text = input.ConsumeRemainingBytesAsString();
    // Allocated in their exact sizes, so that AddressSanitizer sees a byte read or written too far. A text as long as
    // `length` needs no terminator.
    const std::string_view readable = std::string_view(text.c_str()).substr(0, length);
    std::vector<char> exact(readable.begin(), readable.end());
    if (readable.size() < length)
        exact.push_back('\0');
    exact.shrink_to_fit();
    std::vector<char> out(room, 'x');

    const int32_t count = tova_uri_decode(out.data(), room, exact.data(), length);
    const std::string expected = decoded(readable, room - 1);
    fuzz::same("the count", static_cast<long long>(expected.size()), count);
    fuzz::same("the text", expected, {out.data(), static_cast<size_t>(count)});
    fuzz::require("a terminator", out[static_cast<size_t>(count)] == '\0');
    fuzz::same("no text at all", 0, tova_uri_decode(out.data(), room, nullptr, length));
    return 0;
}
