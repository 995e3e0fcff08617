// Files: open, read, write, seek, copy, list, inspect.
//
// The caller owns the record and uses it from one thread at a time; different records are independent. Descriptors
// are not inherited by programs that the host starts. Failures are results; the system's error number is kept in the
// record. Null or unstamped records, a second open and unknown modes abort.
#pragma once

#include "lumo/tova/base.h"
#include "lumo/tova/clock.h"
#include "lumo/tova/security.h"
#include <dirent.h>

TOVA_C_BEGIN

/// The descriptor of a closed file.
enum
{
    INVALID_FILE = -1
};

/// A file. `_error` may be read; the rest is the layer's own.
typedef struct tova_file
{
    int32_t _version;
    /// Descriptor, INVALID_FILE when closed.
    int32_t _file;
    /// The system's error number of the last failure, 0 after init and at end of file.
    int32_t _error;
} tova_file;

/// How to open. New files get the permission bits 0666 less the process's mask.
enum
{
    /// An existing file, to read.
    tova_file_read_only = 0,
    /// An existing file, to read and write.
    tova_file_read_write = 1,
    /// An existing file; every write goes to its end.
    tova_file_append = 2,
    /// An existing file with its content, or a new one.
    tova_file_open_or_create = 3,
    /// A new file, or an existing one emptied.
    tova_file_truncate = 4
};

/// Stamps the record: closed, no error.
TOVA_API void tova_file_init(tova_file* f);

/// Opens `path` in one of the modes above: 1, or 0 and `_error`. The record must be closed.
TOVA_API int32_t tova_file_open(tova_file* f, const char* path, int32_t mode);

/// Creates `path`, or empties it, and gives it the permissions of `security` (null: 0666): 1, or 0 and `_error`.
///
/// With `security` a symbolic link at `path` is refused (ELOOP), and the file that was opened gets the permissions,
/// whatever takes its name meanwhile. Where they cannot be given, the file stays, made or emptied, and is closed.
TOVA_API int32_t tova_file_create(tova_file* f, const char* path, tova_security* security);

/// Closes the file; a closed record may be closed again, or opened. A record that goes out of scope open leaks its
/// descriptor.
TOVA_API void tova_file_close(tova_file* f);

/// Reads up to `size` bytes at once and stores how many in `count`: 1 when there were any.
///
/// End of file is a 0 as well: `count` is 0 and `_error` 0; any other failure leaves an error number.
TOVA_API int32_t tova_file_read(tova_file* f, void* buffer, uint32_t size, uint32_t* count);

/// Writes `size` bytes at once: 1 only when all were written. A short write leaves ENOSPC in `_error`.
///
/// What was written is with the operating system, not necessarily on the disk. Signals do not interrupt it.
TOVA_API int32_t tova_file_write(tova_file* f, const void* buffer, uint32_t size);

/// Moves to `offset` bytes from the start: 1, or 0 and `_error`.
TOVA_API int32_t tova_file_seek(tova_file* f, int64_t offset);

/// Moves to the end: 1, or 0 and `_error`.
TOVA_API int32_t tova_file_seek_end(tova_file* f);

/// The size of the open file in bytes, whatever is written to it by others; 0 when it cannot be had.
TOVA_API uint64_t tova_file_size(tova_file* f);

/// 1 when `path` is a regular file; follows symbolic links.
TOVA_API int32_t tova_file_exists(const char* path);

/// Removes the file, or a link but not what it points to: 1 when done. Those that have it open can go on using it.
TOVA_API int32_t tova_file_remove(const char* path);

/// Copies the content of `source` over `destination`: 1 when all of it arrived.
///
/// The destination is emptied first, so a copy that fails leaves it partial, and a file copied onto itself is lost.
TOVA_API int32_t tova_file_copy(const char* source, const char* destination);

/// What tova_file_info_get tells; local time, no milliseconds. Deliberate: `bias` counts minutes east of Greenwich,
/// unlike that of tova_time_local, because hosts read both signs since the first version. A time beyond the calendar is
/// all zero.
typedef struct tova_file_info
{
    /// Last change of status.
    tova_time changed;
    /// Last change of content.
    tova_time modified;
    /// Last access.
    tova_time accessed;
    /// Bytes.
    uint64_t size;
} tova_file_info;

/// Asks about a file, following symbolic links: 1, or 0 with `info` zeroed.
TOVA_API int32_t tova_file_info_get(const char* name, tova_file_info* info);

/// A walk through a directory; the members are the layer's own.
typedef struct tova_file_find
{
    int32_t _version;
    /// Null when the walk is over.
    DIR* _stream;
    struct dirent* _entry;
    /// Name of the current entry, empty when there is none.
    char _name[1024];
    /// As given.
    char _directory[1024];
} tova_file_find;

/// Begins a walk and finds the first entry, "." and ".." left out, in the system's order: 1, or 0 when there is none.
///
/// A path of more than 1,023 characters aborts.
TOVA_API int32_t tova_file_find_first(tova_file_find* f, const char* directory);

/// The same for callers that pass a pattern, which must be "*" (every entry is listed); any other aborts.
TOVA_API int32_t tova_file_find_first_pattern(tova_file_find* f, const char* directory, const char* pattern);

/// Finds the next entry: 1, or 0 when there is none left.
TOVA_API int32_t tova_file_find_next(tova_file_find* f);

/// The current entry's name; valid until the next step.
TOVA_API const char* tova_file_find_name(const tova_file_find* f);

/// 1 when the current entry's name begins with ".".
TOVA_API int32_t tova_file_find_is_hidden(const tova_file_find* f);

/// 1 when the current entry is a directory, or a link to one.
TOVA_API int32_t tova_file_find_is_dir(const tova_file_find* f);

/// Ends a walk, finished or not; a second close does nothing.
TOVA_API void tova_file_find_close(tova_file_find* f);

TOVA_C_END
