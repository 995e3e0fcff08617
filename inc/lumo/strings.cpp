#include "lumo/strings.h"

#include <algorithm>
#include <climits>
#include <cstdarg>

namespace lumo {

int sprintf_safe(char* buffer, unsigned long size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    // The formatter counts in 32 bits. A larger buffer is taken for one of 2 GB, which is more than it ever fills; the
    // cast alone would take it for a negative one.
    const auto bound = static_cast<std::int32_t>(std::min<unsigned long>(size, INT_MAX));
    const int length = tova_vsprintf(buffer, bound, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace lumo
