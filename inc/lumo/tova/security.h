/// Who may read, write and search a file or directory: permission bits and owner, applied in one go.
///
/// The caller owns the record; one thread at a time.
#ifndef LUMO_TOVA_SECURITY_H
#define LUMO_TOVA_SECURITY_H

#include "lumo/tova/base.h"

TOVA_C_BEGIN

/// Permissions to give; the members are the layer's own.
typedef struct tova_security
{
    int32_t _version;
    uint16_t _mode; ///< permission bits
    int32_t _user;  ///< owner, -1 leaves it as it is
    int32_t _group; ///< owning group, -1 leaves it as it is
    int32_t _error; ///< the system's error number of the last failure
} tova_security;

/// For whom tova_security_set adds a level. 0 and 1 are the same.
enum
{
    tova_security_all = 0,
    tova_security_everyone = 1,
    tova_security_users = 2,         ///< group "localaccounts", else "staff": owner and group
    tova_security_administrators = 3 ///< group "admin", else the group of id 0: group only
};

/// Access levels. 6 is the same as 1, 7 the same as 5; any other number gives nothing.
enum
{
    tova_security_read = 1,
    tova_security_write = 2,
    tova_security_read_write = 3,
    tova_security_read_execute = 4,
    tova_security_full = 5
};

/// Stamps the record: no bits, owner and group left as they are.
TOVA_API void tova_security_init(tova_security* s);

/// Adds a level for `who`; levels add up. An unknown `who` aborts.
TOVA_API void tova_security_set(tova_security* s, int32_t who, int32_t level);

/// The permission bits gathered so far.
TOVA_API uint16_t tova_security_get(const tova_security* s);

/// Gives the file or directory at `path` the bits, then owner and group: 1 when done, else 0 and `_error`.
TOVA_API int32_t tova_security_file_set(tova_security* s, const char* path);

/// Packs three access levels into permission bits.
TOVA_API uint16_t tova_security_unix_mode(int32_t owner, int32_t group, int32_t others);

TOVA_C_END

#endif
