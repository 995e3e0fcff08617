// tova_utf8_to_wide and its length, against a decoder written the other way round: by ranges instead of payload bits.

#include "fuzz.h"
#include "lumo/strings.h"
#include "lumo/tova/text.h"

#include <vector>

namespace {

constexpr wchar_t replacement = 0xFFFD;

size_t length_of(unsigned char lead)
{
    static const struct
    {
        unsigned char from, to;
        size_t length;
    } leads[] = {{0xC0, 0xDF, 2}, {0xE0, 0xEF, 3}, {0xF0, 0xF7, 4}, {0xF8, 0xFB, 5}, {0xFC, 0xFD, 6}};
    for (const auto& row : leads)
        if (lead >= row.from && lead <= row.to)
            return row.length;
    return 1;
}

struct Decoded
{
    std::wstring text;
    bool cut = false; // the last sequence runs past the end
};

wchar_t code_point(std::string_view sequence)
{
    static const unsigned long least[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    unsigned long value = static_cast<unsigned char>(sequence[0]);
    if (sequence.size() == 1)
        return value < 0x80 ? static_cast<wchar_t>(value) : replacement;
    value -= 0x100 - (1ul << (8 - sequence.size())); // what the leading ones of the lead byte are worth
    for (char byte : sequence.substr(1))
        value = value * 64 + (static_cast<unsigned char>(byte) - 0x80);
    const bool is_character =
        value >= least[sequence.size()] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    return is_character ? static_cast<wchar_t>(value) : replacement;
}

Decoded decode(std::string_view text)
{
    Decoded out;
    while (!text.empty()) {
        const size_t wanted = length_of(static_cast<unsigned char>(text[0]));
        size_t have = 1;
        while (have < wanted && have < text.size() && (text[have] & 0xC0) == 0x80)
            ++have;
        out.cut = have < wanted && have == text.size();
        out.text += have == wanted ? code_point(text.substr(0, have)) : replacement;
        text.remove_prefix(have);
    }
    return out;
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    const std::string copy(reinterpret_cast<const char*>(bytes), size);
    const std::vector<char> text(copy.c_str(), copy.c_str() + strlen(copy.c_str()) + 1); // exact: over-reads are seen
    const Decoded expected = decode({text.data(), text.size() - 1});

    const auto needed = static_cast<long long>(expected.text.size() + 1);
    fuzz::same("the size asked for", needed, tova_utf8_to_wide(nullptr, 0, text.data()));
    // A size of 1 is misuse even for the empty text.
    std::vector<wchar_t> wide(std::max<size_t>(2, expected.text.size() + 1), L'x');
    fuzz::same("the count", needed, tova_utf8_to_wide(wide.data(), static_cast<unsigned>(wide.size()), text.data()));
    fuzz::require("the terminator", wide[expected.text.size()] == 0);
    fuzz::require("the wide text", expected.text == wide.data() || expected.text.find(L'\0') != std::wstring::npos);
    fuzz::require("the converted string", lumo::utf8_to_wide(text.data()) == expected.text);
    // A sequence that is cut off by the end aborts the count, which is its contract.
    if (!expected.cut)
        fuzz::same("the length", needed - 1, static_cast<long long>(tova_utf8_to_wide_length(text.data())));

    // And back: characters that the library decoded are encoded as they were.
    const int32_t narrow = tova_wide_to_utf8(nullptr, 0, expected.text.c_str());
    std::string back(static_cast<size_t>(std::max(narrow, 2)), 'x');
    fuzz::same("the count back", narrow,
               tova_wide_to_utf8(back.data(), static_cast<unsigned>(back.size()), expected.text.c_str()));
    fuzz::require("decoded again", decode(back.c_str()).text == expected.text);
    return 0;
}
