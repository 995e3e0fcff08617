#include "lumo/tova/platform/platform.h"

namespace tova::platform {

// This system chooses the size of its pages by itself.
void expect_large_use(void*, size_t) {}

} // namespace tova::platform
