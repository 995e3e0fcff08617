// Bounded text. Every buffer of a caller is filled by copy_bounded or the formatter, so each case of a buffer that is
// too small follows one of two rules.
#include "lumo/tova/text.h"

#include <cstdio>
#include <cstring>

namespace {

// Copies `length` characters and terminates them. A text that does not fit is cut and terminated, and then aborts.
template <class Char>
void copy_bounded(Char* dst, unsigned size, const Char* src, size_t length)
{
    const size_t fitting = length < size ? length : size ? size - 1 : 0;
    // The two may overlap: texts are shortened in place.
    memmove(dst, src, fitting * sizeof(Char));
    if (size)
        dst[fitting] = 0;
    if (length >= size)
        tova_assert(false);
}

} // namespace

void tova_strcpy(char* dst, unsigned size, const char* src)
{
    // No further than the destination reaches: a source without a terminator is caught here, not read to its end.
    copy_bounded(dst, size, src, strnlen(src, size));
}

void tova_strncpy(char* dst, unsigned size, const char* src, unsigned count)
{
    copy_bounded(dst, size, src, strnlen(src, count));
}

void tova_strcat(char* dst, unsigned size, const char* src)
{
    const unsigned used = static_cast<unsigned>(strnlen(dst, size));
    // Without a terminator within its size the destination holds no text to append to.
    if (used == size)
        tova_assert(false);
    tova_strcpy(dst + used, size - used, src);
}

void tova_wcscpy(wchar_t* dst, unsigned size, const wchar_t* src)
{
    size_t length = 0;
    while (length < size && src[length])
        ++length;
    copy_bounded(dst, size, src, length);
}

void tova_strpath(char* dst, unsigned size, const char* directory, const char* name)
{
    if (directory != dst)
        tova_strcpy(dst, size, directory);
    // Always a separator, even after a directory that ends in one; the header says why.
    tova_strcat(dst, size, "/");
    tova_strcat(dst, size, name);
}

namespace {

// By the ASCII table: the locale's tolower would let a host's setlocale change how header names compare.
int lower(char c)
{
    const unsigned char u = static_cast<unsigned char>(c);
    return u >= 'A' && u <= 'Z' ? u + 32 : u;
}

} // namespace

int32_t tova_strnicmp(const char* a, const char* b, unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        const int difference = lower(a[i]) - lower(b[i]);
        // Without a difference so far, the terminators of two texts shorter than the count are at the same place.
        if (difference != 0 || !a[i])
            return difference;
    }
    return 0;
}

int32_t tova_stricmp(const char* a, const char* b)
{
    while (*a && lower(*a) == lower(*b)) {
        ++a;
        ++b;
    }
    return lower(*a) - lower(*b);
}

int32_t tova_sprintf(char* dst, int32_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t length = tova_vsprintf(dst, size, format, arguments);
    va_end(arguments);
    return length;
}

// Half a path or half a number looks like a whole one, so a text that does not fit is not delivered at all.
int32_t tova_vsprintf(char* dst, int32_t size, const char* format, va_list arguments)
{
    // There is no room even for a terminator.
    if (size <= 0)
        return 0;
    const int length = vsnprintf(dst, static_cast<size_t>(size), format, arguments);
    if (length >= 0 && length < size)
        return length;
    dst[0] = 0;
    return 0;
}
