// Secrets that leave nothing behind in memory.
#pragma once

#include <string>

namespace AnalyticsSDK {

/// Overwrites everything the text's memory may hold, up to its capacity, in a way that no compiler drops; then empties
/// it. A text that was moved from may still hold its characters: wipe it as well.
void WipeText(std::string& text) noexcept;

/// A text that is wiped when it goes.
struct SecretText
{
    SecretText() = default;
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;
    ~SecretText() { WipeText(text); }

    std::string text;
};

} // namespace AnalyticsSDK
