// Who may read, write and search a file or directory: permission bits and owner, applied in one go.
//
// A record gathers permissions, level by level, and is then given to tova_file_create, tova_directory_create or
// tova_security_file_set as often as wanted. The caller owns the record; one thread at a time. There is nothing to
// release. Null and unstamped records abort.
#pragma once

#include "lumo/tova/base.h"

TOVA_C_BEGIN

/// Permissions to give; the members are the layer's own.
typedef struct tova_security
{
    int32_t _version;
    /// Permission bits.
    uint16_t _mode;
    /// Owner, -1 leaves it as it is.
    int32_t _user;
    /// Owning group, -1 leaves it as it is.
    int32_t _group;
    /// The system's error number of the last failure.
    int32_t _error;
} tova_security;

/// For whom tova_security_set adds a level.
enum
{
    /// Owner, group and all others alike.
    tova_security_all = 0,
    /// The same.
    tova_security_everyone = 1,
    /// Group "localaccounts", else "staff": owner and group.
    tova_security_users = 2,
    /// Group "admin", else the group of id 0: group only.
    tova_security_administrators = 3
};

/// Access levels. 6 is the same as 1, 7 the same as 5; any other number gives nothing.
enum
{
    tova_security_read = 1,
    tova_security_write = 2,
    tova_security_read_write = 3,
    /// To read, and to run a program or search a directory.
    tova_security_read_execute = 4,
    /// All three.
    tova_security_full = 5
};

/// Stamps the record: no bits, owner and group left as they are.
TOVA_API void tova_security_init(tova_security* s);

/// Adds a level for `who`: bits are only ever added. An unknown `who` aborts.
///
/// For users and administrators the group is looked up in the system's group database, which may be on a network and
/// take its time; the last group that was looked up is the record's. A missing group of users leaves the group alone.
TOVA_API void tova_security_set(tova_security* s, int32_t who, int32_t level);

/// The permission bits gathered so far, as chmod takes them.
TOVA_API uint16_t tova_security_get(const tova_security* s);

/// Gives the file or directory at `path` the bits, then owner and group: 1 when done, else 0 and `_error`.
///
/// The process's mask does not count. Only the superuser may give a file to a group without being its member; for
/// others that is a failure, with the bits set already.
TOVA_API int32_t tova_security_file_set(tova_security* s, const char* path);

/// Packs three access levels into permission bits: owner * 64 + group * 8 + others. Unknown levels give none.
TOVA_API uint16_t tova_security_unix_mode(int32_t owner, int32_t group, int32_t others);

TOVA_C_END
