#include "lumo/strings.h"

#include <algorithm>
#include <climits>
#include <cstdarg>

namespace lumo {

int sprintf_safe(char* buffer, unsigned long size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const auto bound = static_cast<std::int32_t>(std::min<unsigned long>(size, INT_MAX));
    const int length = tova_vsprintf(buffer, bound, format, arguments);
    va_end(arguments);
    return length;
}

} // namespace lumo
