#include "lumo/tova/tova-web.h"

#include <gtest/gtest.h>
#include <string>

namespace {

// The part's text, or "-" when it is absent.
std::string text_of(const tova_uri_part& part)
{
    return part.text ? std::string(part.text, part.length) : "-";
}

TEST(Uri, IsSplitIntoItsParts)
{
    static const struct
    {
        const char *uri, *parts; // scheme, user, password, host, path
    } cases[] = {
        {"http://host/path", "http - - host /path"},
        {"http://user@h:8080/a/b", "http user - h:8080 /a/b"},
        {"https://u:p:q@h", "https u p:q h -"},
        {"http://a@b@h?u=a@b", "http a@b - h ?u=a@b"}, // the last "@" of the authority counts
        {"//host#top", "- - - host #top"},
        {"host:80/path", "host - - - 80/path"}, // whatever stands before the first ":"
        {"", "- - - - -"},
        {nullptr, "- - - - -"},
    };
    for (const auto& [text, parts] : cases) {
        tova_uri uri;
        memset(&uri, 0xEE, sizeof uri);
        tova_uri_parse(&uri, text);
        EXPECT_EQ(parts, text_of(uri.scheme) + " " + text_of(uri.user) + " " + text_of(uri.password) + " " +
                             text_of(uri.host) + " " + text_of(uri.path));
    }
}

TEST(Decode, ReplacesSequencesWithinTheBounds)
{
    static const struct
    {
        std::string in;
        unsigned length, size;
        std::string out;
    } cases[] = {
        {"a%2Fb", 5, 16, "a/b"},       {"a%2fb", 100, 16, "a/b"}, // up to the terminator
        {"a%2Fb", 3, 16, "a2"},                                   // the digits end with the length: the sign alone goes
        {"%:?%aF", 6, 16, "\xAF\xAF"}, {"%%41", 4, 16, std::string("\x04") + "1"}, // a sign is no digit and counts 0
        {"%41%42%43", 9, 3, "AB"},
    };
    for (const auto& c : cases) {
        std::string out(20, '#');
        const int32_t written = tova_uri_decode(out.data(), c.size, c.in.c_str(), c.length);
        ASSERT_EQ(c.out.size(), static_cast<size_t>(written)) << c.in;
        EXPECT_EQ(c.out + '\0' + '#', out.substr(0, c.out.size() + 2)) << c.in;
    }
}

} // namespace
