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
        {"http://:p@h/", "http  p h /"},
        {"http://@h/", "http  - h /"},
        {"http://a@b@h/", "http a@b - h /"}, // the last "@" counts
        {"http://h/a@b:c", "http - - h /a@b:c"},
        {"http://h?u=a@b", "http - - h ?u=a@b"},
        {"http://h#top", "http - - h #top"},
        {"http:///file", "http - -  /file"},
        {"http://", "http - -  -"},
        {"http:", "http - - - -"},
        {"mailto:a@b", "mailto - - - a@b"},
        {"//host/path", "- - - host /path"},
        {"host/path", "- - - - host/path"},
        {"host:80/path", "host - - - 80/path"}, // whatever stands before the first ":"
        {"://h/", " - - h /"},
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

TEST(Decode, ReplacesPercentAndTwoDigitsWithinTheBounds)
{
    static const struct
    {
        std::string in;
        unsigned length, size;
        std::string out;
    } cases[] = {
        {"a%2Fb", 5, 16, "a/b"},
        {"a%2fb", 100, 16, "a/b"}, // up to the terminator
        {"a%2Fb", 4, 16, "a/"},
        {"a%2Fb", 3, 16, "a2"}, // the digits end with the length: the sign alone goes
        {"ab%", 3, 16, "ab"},
        {"ab%", 100, 16, "ab"},
        {"%4g", 3, 16, "@"},
        {"%:?", 3, 16, "\xAF"},
        {"%aF%Fa", 6, 16, "\xAF\xFA"},
        {"%%41", 4, 16, std::string("\x04") + "1"}, // a sign is no digit and counts 0
        {"%zz", 3, 16, std::string(1, '\0')},
        {"a+b", 3, 16, "a+b"},
        {"abcdef", 6, 4, "abc"},
        {"%41%42%43", 9, 3, "AB"},
        {"abc", 3, 1, ""},
        {"abc", 0, 16, ""},
    };
    for (const auto& c : cases) {
        std::string out(20, '#');
        const int32_t written = tova_uri_decode(out.data(), c.size, c.in.c_str(), c.length);
        ASSERT_EQ(c.out.size(), static_cast<size_t>(written)) << c.in;
        EXPECT_EQ(c.out + '\0' + '#', out.substr(0, c.out.size() + 2)) << c.in;
    }
}

TEST(Decode, ReadsNoFurtherThanTheGivenLength)
{
    const std::unique_ptr<char[]> tight(new char[2]{'%', '4'}); // a sanitizer sees a read beyond it
    char out[4] = "xxx";
    EXPECT_EQ(1, tova_uri_decode(out, sizeof out, tight.get(), 2));
    EXPECT_STREQ("4", out);
    EXPECT_EQ(0, tova_uri_decode(out, sizeof out, nullptr, 5));
    EXPECT_STREQ("", out);
    out[0] = 'k';
    EXPECT_EQ(0, tova_uri_decode(out, 0, "abc", 3));
    EXPECT_EQ('k', out[0]);
}

TEST(SystemProxy, IsNeverFound)
{
    tova_proxy proxy = {"left", "over"};
    for (const char* url : {"http://example.org/", "", "nonsense"})
        EXPECT_EQ(0, tova_proxy_get_for_url(url, &proxy));
    EXPECT_EQ(0, tova_proxy_get_for_url(nullptr, nullptr));
    EXPECT_STREQ("", proxy.proxies);
    EXPECT_STREQ("", proxy.bypass);
}

} // namespace
