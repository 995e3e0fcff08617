#include "lumo/tova/platform/platform.h"

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace tova::platform {

// statx() leaves the times out. Linux 6.13 and later note that a file's times were read, and the next write must then
// give it new ones, which costs ext4 more than the call itself. A container may refuse statx(); then fstat() answers.
bool file_status(int file, struct stat& status)
{
    constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_NLINK | STATX_UID | STATX_INO | STATX_SIZE;
    struct statx found;
    if (statx(file, "", AT_EMPTY_PATH, wanted, &found) != 0 || (found.stx_mask & wanted) != wanted)
        return fstat(file, &status) == 0;
    status.st_dev = makedev(found.stx_dev_major, found.stx_dev_minor);
    status.st_ino = found.stx_ino;
    status.st_mode = found.stx_mode;
    status.st_nlink = found.stx_nlink;
    status.st_uid = found.stx_uid;
    status.st_size = static_cast<off_t>(found.stx_size);
    return true;
}

namespace {

// Its signal is a number that belongs to an open file and does nothing as long as O_ASYNC is not set. A change of the
// window's size is the last thing that a host would want to hear from a file, and by default it is ignored.
constexpr int mark = SIGWINCH;

} // namespace

bool mark_file(int file)
{
    return fcntl(file, F_SETSIG, mark) == 0;
}

bool has_mark(int file)
{
    return fcntl(file, F_GETSIG) == mark;
}

// The system call itself: the C library's write() is a place of cancellation.
ssize_t write_file(int file, const void* data, size_t size)
{
    return syscall(SYS_write, file, data, size);
}

} // namespace tova::platform
