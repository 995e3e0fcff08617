#include "lumo/tova/platform/platform.h"

#include <sys/stat.h>
#include <unistd.h>

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

ssize_t write_file(int file, const void* data, size_t size)
{
    return write(file, data, size);
}

} // namespace tova::platform
