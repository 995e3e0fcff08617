#include "lumo/tova/platform/platform.h"

#include <sys/mman.h>

namespace tova::platform {

void expect_large_use(void* memory, size_t size)
{
    // Whole large pages within the stretch: what lies around them belongs to others.
    constexpr uintptr_t large_page = 2 << 20;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(memory) + large_page - 1) / large_page * large_page;
    const uintptr_t end = (reinterpret_cast<uintptr_t>(memory) + size) / large_page * large_page;
    if (begin < end)
        madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

} // namespace tova::platform
