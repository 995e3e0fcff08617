#include "lumo/own/large_text.h"

#include "lumo/tova/platform/platform.h"

namespace lumo {

void reserve_large(std::string& text, std::size_t size)
{
    // Below this size the system call costs more than large pages save.
    constexpr std::size_t large = 8 << 20;
    text.reserve(size);
    if (size >= large)
        tova::platform::expect_large_use(text.data(), size);
}

} // namespace lumo
