#include "host/streams.h"

#include <ext/stdio_filebuf.h>
#include <fcntl.h>

namespace AnalyticsSDK::host {

// The standard streams open files that every program started meanwhile inherits; a buffer made around a descriptor is
// this standard library's own way out.
void OpenForWriting(std::ofstream& file, const char* path)
{
    const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor == -1) {
        file.setstate(std::ios::failbit);
        return;
    }
    __gnu_cxx::stdio_filebuf<char> buffer(descriptor, std::ios::out | std::ios::binary);
    static_cast<std::filebuf&>(*file.rdbuf()) = std::move(buffer);
}

} // namespace AnalyticsSDK::host
