// URIs, the part of tova-web that needs no libcurl.
#include "lumo/tova/tova-web.h"

#include <cstring>

// There is no one place for the system's proxy settings; the lists are emptied so that no caller takes old memory for
// them.
int32_t tova_proxy_get_for_url(const char*, tova_proxy* proxy)
{
    if (proxy)
        proxy->proxies[0] = proxy->bypass[0] = 0;
    return 0;
}

namespace {

tova_uri_part part(const char* begin, const char* end)
{
    return {begin, static_cast<uint32_t>(end - begin)};
}

// user:password@host:port
void parse_authority(tova_uri* uri, const char* begin, const char* end)
{
    // The last "@" counts, as it does in libcurl.
    const char* at = end;
    while (at > begin && *at != '@')
        --at;
    if (at == end || *at != '@') {
        uri->host = part(begin, end);
        return;
    }
    uri->host = part(at + 1, end);
    const auto* colon = static_cast<const char*>(memchr(begin, ':', static_cast<size_t>(at - begin)));
    uri->user = part(begin, colon ? colon : at);
    if (colon)
        uri->password = part(colon + 1, at);
}

} // namespace

void tova_uri_parse(tova_uri* uri, const char* text)
{
    memset(uri, 0, sizeof *uri);
    if (!text)
        return;
    // Nothing is validated: a text that is no URI gives meaningless parts.
    if (const char* colon = strchr(text, ':')) {
        uri->scheme = part(text, colon);
        text = colon + 1;
    }
    if (strncmp(text, "//", 2) == 0) {
        text += 2;
        // A query or fragment may follow the host at once; its "@" must not be taken for the end of a user's name.
        const char* end = text + strcspn(text, "/?#");
        parse_authority(uri, text, end);
        text = end;
    }
    // Query and fragment are left in the path.
    if (*text)
        uri->path = part(text, text + strlen(text));
}

namespace {

// The value of a digit. The characters between "9" and "A" continue from 9, and anything else that is no digit is 0;
// tova-web.h says why.
unsigned digit_value(char c)
{
    const unsigned from_zero = static_cast<unsigned char>(c) - static_cast<unsigned>('0');
    if (from_zero <= 15)
        return from_zero;
    const unsigned letter = (static_cast<unsigned char>(c) | 0x20u) - 'a';
    return letter < 6 ? letter + 10 : 0;
}

} // namespace

int32_t tova_uri_decode(char* out, unsigned size, const char* text, unsigned length)
{
    if (size == 0)
        return 0;
    // `length` comes from a URI's part, which has no terminator of its own: reading on would enter the next part.
    const char* end = text ? text + strnlen(text, length) : nullptr;
    unsigned written = 0;
    while (text != end && written < size - 1) {
        if (*text != '%') {
            out[written++] = *text++;
        } else if (end - text > 2) {
            out[written++] = static_cast<char>(digit_value(text[1]) << 4 | digit_value(text[2]));
            text += 3;
        } else {
            ++text;
        }
    }
    out[written] = 0;
    return static_cast<int32_t>(written);
}
