#include "lumo/tova/platform/platform.h"

#include <sys/mman.h>

namespace tova::platform {

void expect_large_use(void* memory, size_t size)
{
    // Only the whole large pages within the range: the memory around them belongs to others.
    constexpr uintptr_t large_page = 2 << 20;
    const uintptr_t address = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t skipped = (large_page - address % large_page) % large_page;
    // Small ranges gain nothing and are left alone. If the system refuses, the memory works as before.
    if (size > skipped + large_page)
        madvise(static_cast<char*>(memory) + skipped, (size - skipped) / large_page * large_page, MADV_HUGEPAGE);
}

} // namespace tova::platform
