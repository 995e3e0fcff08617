// Bounded text: copies that never overflow, formatting that never truncates, UTF-8 and wide text.
//
// Sizes count characters of the destination (wide characters for wide text), terminator included. Wide text is wchar_t
// of 32 bits, one code point each. A copy that does not fit is misuse and aborts with the assertion "false" after the
// destination was terminated; formatting that does not fit is a result. All memory is the caller's, and any thread may
// call; only the conversions of the formatter depend on the host's locale.
#pragma once

#include "lumo/tova/base.h"
#include <stdarg.h>

TOVA_C_BEGIN

/// Copies `src`.
TOVA_API void tova_strcpy(char* dst, unsigned size, const char* src);

/// Copies at most `count` characters of `src` and terminates them.
TOVA_API void tova_strncpy(char* dst, unsigned size, const char* src, unsigned count);

/// Appends `src` to the text in `dst`; `size` is the whole of `dst`.
TOVA_API void tova_strcat(char* dst, unsigned size, const char* src);

/// Copies wide text.
TOVA_API void tova_wcscpy(wchar_t* dst, unsigned size, const wchar_t* src);

/// Joins a directory and a name with "/" into `dst`, which may be `directory` itself.
///
/// Deliberate: the separator is always inserted, so "a/" and "b" give "a//b", because systems treat repeated separators
/// as one and the length is known without reading the directory.
TOVA_API void tova_strpath(char* dst, unsigned size, const char* directory, const char* name);

/// Compares as strcmp does, letters A to Z counting as a to z whatever the locale.
TOVA_API int32_t tova_stricmp(const char* a, const char* b);

/// The same over at most `count` characters.
TOVA_API int32_t tova_strnicmp(const char* a, const char* b, unsigned count);

/// Formats as printf does into `dst` and returns the length written.
///
/// A text that needs `size` characters or more, or that cannot be formatted, gives the empty text and 0.
TOVA_API int32_t tova_sprintf(char* dst, int32_t size, const char* format, ...) TOVA_PRINTF(3, 4);

/// The same with an argument list.
TOVA_API int32_t tova_vsprintf(char* dst, int32_t size, const char* format, va_list arguments) TOVA_PRINTF(3, 0);

/// Converts UTF-8 to wide text and returns the wide characters written, terminator included.
///
/// With a null `dst` it returns the size that `dst` must have. `size` must be more than 1. What is no UTF-8 becomes
/// U+FFFD, one for each sequence: one that is cut off by the end of the text or by the next character, an overlong
/// form, a surrogate, a value above U+10FFFF, a byte that begins nothing.
TOVA_API int32_t tova_utf8_to_wide(wchar_t* dst, unsigned size, const char* src);

/// Counts the code points of `src`, sequences that are no UTF-8 as one each, as the conversion does.
///
/// Deliberate: unlike the conversion it aborts when the last sequence runs past the end of the text, so that a text in
/// pieces is not counted wrongly.
TOVA_API uint32_t tova_utf8_to_wide_length(const char* src);

/// Converts wide text to UTF-8 and returns the bytes written, terminator included.
///
/// With a null `dst` it returns the size that `dst` must have. `size` must be more than 1. What is no code point
/// becomes U+FFFD.
TOVA_API int32_t tova_wide_to_utf8(char* dst, unsigned size, const wchar_t* src);

/// A text that grows. The caller owns the record, the layer its memory until tova_string_clear; one thread at a time.
typedef struct tova_string
{
    int32_t _version;
    /// Characters, terminator not counted.
    uint32_t _length;
    /// Characters allocated, terminator included.
    uint32_t _capacity;
    /// Null while nothing is allocated.
    char* _text;
} tova_string;

/// Makes an empty string.
TOVA_API void tova_string_init(tova_string* s);

/// Makes room for a text of `size` characters, terminator included; keeps the text. Aborts when memory runs out.
TOVA_API void tova_string_reserve(tova_string* s, uint32_t size);

/// Copies `text` into the string in place of what it held; null counts as empty.
TOVA_API void tova_string_set(tova_string* s, const char* text);

/// Appends `text`; null counts as empty.
TOVA_API void tova_string_append(tova_string* s, const char* text);

/// Releases the memory and leaves an empty string that can be used again.
TOVA_API void tova_string_clear(tova_string* s);

/// The text, "" when empty; valid until the string is changed.
TOVA_API const char* tova_string_get(const tova_string* s);

/// Its length in characters, terminator not counted.
TOVA_API uint32_t tova_string_length(const tova_string* s);

TOVA_C_END
