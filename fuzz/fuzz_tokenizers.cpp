// Both tokenizers of proxy settings, and what they rest on, against a splitter that looks at one character at a time.

#include "AnalyticsSDK/ProxyUtilities.h"
#include "AnalyticsSDK/Utilities.h"
#include "fuzz.h"

#include <algorithm>
#include <vector>

namespace {

std::vector<std::string> split(std::string_view text, std::string_view delimiters)
{
    std::vector<std::string> tokens(1);
    for (char c : text) {
        if (delimiters.find(c) == std::string_view::npos)
            tokens.back() += c;
        else if (!tokens.back().empty())
            tokens.emplace_back();
    }
    if (tokens.back().empty())
        tokens.pop_back();
    return tokens;
}

void same(const char* what, const std::vector<std::string>& expected, const std::vector<std::string>& got)
{
    fuzz::same(what, static_cast<long long>(expected.size()), static_cast<long long>(got.size()));
    for (size_t i = 0; i < expected.size(); ++i)
        fuzz::same(what, expected[i], got[i]);
}

std::wstring widened(std::string_view text)
{
    return {text.begin(), text.end()};
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    FuzzedDataProvider input(bytes, size);
    const std::string delimiters = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, 4));
    const std::string text = input.ConsumeRemainingBytesAsString();

    // Tokenize appends to the list, the two functions for proxies clear it: an entry from before shows which.
    std::vector<std::string> tokens = {"kept"};
    AnalyticsSDK::Tokenize(text, tokens, delimiters);
    std::vector<std::string> expected = split(text, delimiters);
    expected.insert(expected.begin(), "kept");
    same("Tokenize", expected, tokens);
    std::vector<std::wstring> wide;
    AnalyticsSDK::Tokenize(widened(text), wide, widened(delimiters));
    fuzz::same("Tokenize, wide", static_cast<long long>(expected.size() - 1), static_cast<long long>(wide.size()));

    // Settings are texts with a terminator, so a NUL ends them.
    const std::vector<std::string> entries = split(text.c_str(), "; ");
    expected.clear();
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(expected),
                 [](const std::string& entry) { return entry != ":" && entry != "::"; });
    std::vector<std::string> proxies = {"cleared"};
    AnalyticsSDK::TokenizeProxyString(text.c_str(), proxies);
    same("TokenizeProxyString", expected, proxies);

    expected.clear();
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(expected),
                 [](const std::string& entry) { return entry != "<local>"; });
    bool local = true;
    std::vector<std::string> bypass = {"cleared"};
    AnalyticsSDK::TokenizeProxyBypassString(text.c_str(), bypass, local);
    same("TokenizeProxyBypassString", expected, bypass);
    fuzz::require("<local> is seen", local == (expected.size() != entries.size()));
    fuzz::require("no host is ever exempt", !AnalyticsSDK::IsProxyBypassed(text.c_str(), bypass, local));
    return 0;
}
