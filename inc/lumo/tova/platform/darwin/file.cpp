#include "lumo/tova/platform/platform.h"

#include <sys/stat.h>

namespace tova::platform {

bool file_status(int file, struct stat& status)
{
    return fstat(file, &status) == 0;
}

bool mark_file(int)
{
    return false;
}

bool has_mark(int)
{
    return false;
}

} // namespace tova::platform
