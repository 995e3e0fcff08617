// Files by system calls, one for each operation and nothing buffered: once tova_file_write has returned 1, the system
// has the data and a crash of the host does not lose it.
#include "lumo/tova/file.h"
#include "lumo/tova/directory.h"
#include "lumo/tova/own/internal.h"
#include "lumo/tova/own/uninterrupted.h"
#include "lumo/tova/text.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void check(const tova_file* f)
{
    tova_assert(f);
    tova_assert(f->_version == tova_version);
}

// Notes the outcome of a call in the record: 1, or 0 and the system's error.
int32_t outcome(tova_file* f, bool done)
{
    if (!done)
        f->_error = errno;
    return done;
}

// Close-on-exec from the start: a flag set later would lose the race against another thread's fork and exec.
int32_t open_with(tova_file* f, const char* path, int flags, mode_t mode)
{
    f->_file = tova::uninterrupted([=] { return open(path, flags | O_CLOEXEC, mode); });
    return f->_file != INVALID_FILE;
}

int32_t open_mode(tova_file* f, const char* path, int32_t mode)
{
    switch (mode) {
    case tova_file_read_only:
        return open_with(f, path, O_RDONLY, 0);
    case tova_file_read_write:
        return open_with(f, path, O_RDWR, 0);
    case tova_file_append:
        // Never created here: appending to a file that is gone is a failure that the caller should see.
        return open_with(f, path, O_RDWR | O_APPEND, 0);
    case tova_file_open_or_create:
        // In two steps, so that exactly one of several openers creates the file.
        return open_with(f, path, O_RDWR | O_CREAT | O_EXCL, 0666) || open_with(f, path, O_RDWR, 0);
    case tova_file_truncate:
        return open_with(f, path, O_RDWR | O_CREAT | O_TRUNC, 0666);
    default:
        tova_assert(false);
        return 0;
    }
}

} // namespace

void tova_file_init(tova_file* f)
{
    tova_assert(f);
    f->_version = tova_version;
    f->_file = INVALID_FILE;
    f->_error = 0;
}

int32_t tova_file_open(tova_file* f, const char* path, int32_t mode)
{
    check(f);
    // A second open would lose the descriptor of the first.
    tova_assert(f->_file == INVALID_FILE);
    return outcome(f, open_mode(f, path, mode));
}

int32_t tova_file_create(tova_file* f, const char* path, tova_security* security)
{
    check(f);
    tova_assert(f->_file == INVALID_FILE);
    // The bits are set here and again through the descriptor below, so that the file never allows more than the object
    // says, not even in between. No link is followed and the name is not resolved twice: else another's file could get
    // the permissions.
    const mode_t mode = security ? tova_security_get(security) : 0666;
    const int no_link = security ? O_NOFOLLOW : 0;
    if (!outcome(f, open_with(f, path, O_RDWR | O_CREAT | O_TRUNC | no_link, mode)))
        return 0;
    if (!security || tova::security_descriptor_set(security, f->_file))
        return 1;
    // A file that could not be protected as asked counts as not made.
    tova_file_close(f);
    f->_error = security->_error;
    return 0;
}

void tova_file_close(tova_file* f)
{
    check(f);
    if (f->_file == INVALID_FILE)
        return;
    // Not repeated on EINTR: the descriptor is closed by then, and another thread may have got its number.
    close(f->_file);
    f->_file = INVALID_FILE;
}

int32_t tova_file_read(tova_file* f, void* buffer, uint32_t size, uint32_t* count)
{
    check(f);
    const ssize_t result = tova::uninterrupted([=] { return read(f->_file, buffer, size); });
    // At the end of the file `_error` is 0, so that a caller can tell it from a failure.
    *count = result > 0 ? static_cast<uint32_t>(result) : 0;
    if (result <= 0)
        f->_error = result == 0 ? 0 : errno;
    return result > 0;
}

int32_t tova_file_write(tova_file* f, const void* buffer, uint32_t size)
{
    check(f);
    // One call for the whole, never a loop over parts: lines that several writers append must not mix.
    const ssize_t result = tova::uninterrupted([=] { return write(f->_file, buffer, size); });
    // A short write sets no error number. The usual reason is a disk that is full, and the next write will say so.
    if (result >= 0 && result != static_cast<ssize_t>(size))
        errno = ENOSPC;
    return outcome(f, result == static_cast<ssize_t>(size));
}

int32_t tova_file_seek(tova_file* f, int64_t offset)
{
    check(f);
    // Beyond the end is no error: a write there leaves a hole.
    return outcome(f, lseek(f->_file, static_cast<off_t>(offset), SEEK_SET) != -1);
}

int32_t tova_file_seek_end(tova_file* f)
{
    check(f);
    return outcome(f, lseek(f->_file, 0, SEEK_END) != -1);
}

uint64_t tova_file_size(tova_file* f)
{
    check(f);
    struct stat status;
    // Of the descriptor: the name may have gone to another file since.
    return fstat(f->_file, &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

// Only regular files count: reading events or an id from a pipe would block.
int32_t tova_file_exists(const char* path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// Removes a link itself, not what it points to.
int32_t tova_file_remove(const char* path)
{
    return unlink(path) == 0;
}

namespace {

// Copies from the current positions of both files; false when a read or a write failed.
bool copy_content(tova_file* from, tova_file* to)
{
    char block[512];
    uint32_t count;
    // The end and a failure both stop the loop; the error number tells them apart.
    while (tova_file_read(from, block, sizeof block, &count)) {
        if (!tova_file_write(to, block, count))
            return false;
    }
    return from->_error == 0;
}

} // namespace

int32_t tova_file_copy(const char* source, const char* destination)
{
    tova_file from;
    tova_file to;
    tova_file_init(&from);
    tova_file_init(&to);
    // The source first: one that cannot be read must not cost the destination its content.
    bool copied = false;
    if (tova_file_open(&from, source, tova_file_read_only) && tova_file_open(&to, destination, tova_file_truncate))
        copied = copy_content(&from, &to);
    tova_file_close(&from);
    tova_file_close(&to);
    return copied;
}

int32_t tova_file_info_get(const char* name, tova_file_info* info)
{
    // Zeroed first, so that a caller that ignores the result does not read old memory.
    memset(info, 0, sizeof *info);
    struct stat status;
    if (stat(name, &status) != 0)
        return 0;
    tova::time_local_from(status.st_ctime, &info->changed);
    tova::time_local_from(status.st_mtime, &info->modified);
    tova::time_local_from(status.st_atime, &info->accessed);
    info->size = static_cast<uint64_t>(status.st_size);
    return 1;
}

namespace {

void check(const tova_file_find* f)
{
    tova_assert(f);
    tova_assert(f->_version == tova_version);
}

// Releases the stream as soon as there is nothing left to find, not only when the caller closes.
void end_walk(tova_file_find* f)
{
    if (f->_stream)
        closedir(f->_stream);
    f->_stream = nullptr;
    f->_entry = nullptr;
    f->_name[0] = 0;
}

} // namespace

int32_t tova_file_find_first(tova_file_find* f, const char* directory)
{
    return tova_file_find_first_pattern(f, directory, "*");
}

int32_t tova_file_find_first_pattern(tova_file_find* f, const char* directory, const char* pattern)
{
    tova_assert(f);
    // Refused rather than ignored: a caller with another pattern would take every entry for a match.
    if (strcmp(pattern, "*") != 0)
        tova_assert(false);
    memset(f, 0, sizeof *f);
    f->_version = tova_version;
    tova_strcpy(f->_directory, sizeof f->_directory, directory);
    f->_stream = opendir(directory);
    // Without a stream the step below finds nothing, so a folder that cannot be opened looks like an empty one.
    return tova_file_find_next(f);
}

int32_t tova_file_find_next(tova_file_find* f)
{
    check(f);
    if (!f->_stream)
        return 0;
    // Every directory has these two, and a recursive walk that followed them would never end.
    do
        f->_entry = readdir(f->_stream); // NOLINT(concurrency-mt-unsafe): a stream of its own
    while (f->_entry && (strcmp(f->_entry->d_name, ".") == 0 || strcmp(f->_entry->d_name, "..") == 0));
    if (!f->_entry) {
        end_walk(f);
        return 0;
    }
    tova_strcpy(f->_name, sizeof f->_name, f->_entry->d_name);
    return 1;
}

const char* tova_file_find_name(const tova_file_find* f)
{
    check(f);
    return f->_name;
}

int32_t tova_file_find_is_hidden(const tova_file_find* f)
{
    check(f);
    return f->_name[0] == '.';
}

int32_t tova_file_find_is_dir(const tova_file_find* f)
{
    check(f);
    // Both parts are bounded by their own arrays, and the separator takes the place of one terminator.
    char path[sizeof f->_directory + sizeof f->_name];
    tova_strpath(path, sizeof path, f->_directory, f->_name);
    return tova_directory_exists(path);
}

void tova_file_find_close(tova_file_find* f)
{
    tova_assert(f);
    if (f->_version != tova_version)
        return;
    f->_version = 0;
    end_walk(f);
}
