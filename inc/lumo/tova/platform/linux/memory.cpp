#include "lumo/tova/platform/platform.h"

#include <sys/mman.h>

namespace tova::platform {

void expect_large_use(void* memory, size_t size)
{
    // Whole large pages within the stretch: what lies around them belongs to others.
    constexpr uintptr_t large_page = 2 << 20;
    const uintptr_t address = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t skipped = (large_page - address % large_page) % large_page;
    // Small stretches gain nothing and are left alone. Refused, the memory works as before.
    if (size > skipped + large_page)
        madvise(static_cast<char*>(memory) + skipped, (size - skipped) / large_page * large_page, MADV_HUGEPAGE);
}

} // namespace tova::platform
