#include "intake.h"

#include "AnalyticsSDK/Identity.h"

#include <array>
#include <charconv>

namespace intake {

namespace {

using Hash = std::array<unsigned char, 56>;

bool read_digits(std::string_view token, Hash& hash)
{
    if (token.size() != 2 * hash.size() || token.find_first_not_of("0123456789abcdef") != std::string_view::npos)
        return false;
    for (size_t i = 0; i < hash.size(); ++i)
        std::from_chars(token.data() + 2 * i, token.data() + 2 * i + 2, hash[i], 16);
    return true;
}

} // namespace

Refused check_token(std::string_view sender, std::string_view token)
{
    Hash hash;
    if (read_digits(token, hash) && AnalyticsSDK::TestHash(std::string(sender).c_str(), hash.data(), hash.size()))
        return std::nullopt;
    return Refusal{403, "The token does not belong to the sender."};
}

} // namespace intake
