#include "host/streams.h"

#include <ext/stdio_filebuf.h>
#include <fcntl.h>

namespace AnalyticsSDK::host {

// A file opened by a standard stream is inherited by programs that the host starts. libstdc++ can make a file buffer
// from a descriptor instead.
void open_for_writing(std::ofstream& file, const char* path)
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
