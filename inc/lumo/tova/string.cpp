// Growing text: tova_string.
#include "lumo/tova/text.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void check(const tova_string* s)
{
    tova_assert(s);
    tova_assert(s->_version == tova_version);
}

} // namespace

void tova_string_init(tova_string* s)
{
    tova_assert(s);
    memset(s, 0, sizeof *s);
    s->_version = tova_version;
}

void tova_string_reserve(tova_string* s, uint32_t size)
{
    check(s);
    if (size <= s->_capacity)
        return;
    char* grown = static_cast<char*>(realloc(s->_text, size));
    // Aborts: there is no result to report it with, and a shortened text would be sent as if it were whole.
    if (!grown)
        tova_assert(false);
    grown[s->_length] = 0;
    s->_text = grown;
    s->_capacity = size;
}

namespace {

// Puts `text` after the first `kept` characters. The text may be the string's own, so its old block goes last.
void replace_tail(tova_string* s, uint32_t kept, const char* text)
{
    check(s);
    const size_t added = text ? strlen(text) : 0;
    const size_t needed = kept + added + 1;
    // The length is kept in 32 bits: one that wrapped would let the copy run over its end.
    if (needed > UINT32_MAX)
        tova_assert(false);
    std::unique_ptr<char, decltype(&free)> old(nullptr, free);
    if (needed > s->_capacity) {
        // Half as much again, so that appending piece by piece stays linear.
        const size_t wanted = kept ? needed + needed / 2 : needed;
        const size_t capacity = wanted > UINT32_MAX ? needed : wanted;
        char* grown = static_cast<char*>(malloc(capacity));
        if (!grown)
            tova_assert(false);
        if (kept)
            memcpy(grown, s->_text, kept);
        old.reset(s->_text);
        s->_text = grown;
        s->_capacity = static_cast<uint32_t>(capacity);
    }
    if (added)
        memmove(s->_text + kept, text, added);
    s->_length = static_cast<uint32_t>(kept + added);
    s->_text[s->_length] = 0;
}

} // namespace

void tova_string_set(tova_string* s, const char* text)
{
    replace_tail(s, 0, text);
}

void tova_string_append(tova_string* s, const char* text)
{
    check(s);
    replace_tail(s, s->_length, text);
}

void tova_string_clear(tova_string* s)
{
    check(s);
    // Empty rather than destroyed: a request releases its texts and is used again.
    free(s->_text);
    tova_string_init(s);
}

const char* tova_string_get(const tova_string* s)
{
    check(s);
    return s->_text ? s->_text : "";
}

uint32_t tova_string_length(const tova_string* s)
{
    check(s);
    return s->_length;
}
