// Permissions, collected level by level and then applied.
#include "lumo/tova/security.h"
#include "lumo/tova/own/internal.h"

#include <cerrno>
#include <cstring>
#include <grp.h>
#include <memory>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void check(const tova_security* s)
{
    tova_assert(s);
    tova_assert(s->_version == tova_version);
}

int permission_bits(int32_t level)
{
    // None, read, write, read and write, read and execute, all; then read and all again under their second numbers.
    static constexpr int bits[] = {0, 4, 2, 6, 5, 7, 4, 7};
    return level >= 0 && level < 8 ? bits[level] : 0;
}

int32_t group_id(const char* name)
{
    // A record lists the group's members, so its size has no bound; one of millions of bytes counts as not found.
    int result = ERANGE;
    for (size_t size = 4096; result == ERANGE && size <= (4u << 20); size *= 4) {
        const std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
        group record;
        group* found = nullptr;
        result = text ? getgrnam_r(name, &record, text.get(), size, &found) : ENOMEM;
        if (result == 0 && found)
            return static_cast<int32_t>(found->gr_gid);
    }
    return -1;
}

} // namespace

void tova_security_init(tova_security* s)
{
    tova_assert(s);
    memset(s, 0, sizeof *s);
    s->_version = tova_version;
    s->_user = -1;
    s->_group = -1;
}

uint16_t tova_security_unix_mode(int32_t owner, int32_t group, int32_t others)
{
    // The octal digits of chmod, so 64 and 8 are their places.
    return static_cast<uint16_t>(permission_bits(owner) * 64 + permission_bits(group) * 8 + permission_bits(others));
}

void tova_security_set(tova_security* s, int32_t who, int32_t level)
{
    check(s);
    // Bits are only added: a call never takes back what an earlier one allowed.
    switch (who) {
    case tova_security_all:
    case tova_security_everyone:
        s->_mode |= tova_security_unix_mode(level, level, level);
        break;
    case tova_security_users:
        // The group of all users with an account; systems use one name or the other.
        s->_group = group_id("localaccounts");
        if (s->_group == -1)
            s->_group = group_id("staff");
        s->_mode |= tova_security_unix_mode(level, level, 0);
        break;
    case tova_security_administrators:
        s->_group = group_id("admin");
        // Without such a group the superuser's own: rather too few permissions than too many.
        if (s->_group == -1)
            s->_group = 0;
        s->_mode |= tova_security_unix_mode(0, level, 0);
        break;
    default:
        tova_assert(false);
    }
}

uint16_t tova_security_get(const tova_security* s)
{
    check(s);
    return s->_mode;
}

namespace {

// The bits before the owner: after giving a file away, a process can no longer change its bits. An id of -1 turns into
// all ones, which chown leaves as it is.
template <class Chmod, class Chown, class File>
int32_t apply(tova_security* s, Chmod set_bits, Chown set_owner, File file)
{
    check(s);
    if (set_bits(file, s->_mode) == 0 &&
        set_owner(file, static_cast<uid_t>(s->_user), static_cast<gid_t>(s->_group)) == 0)
        return 1;
    s->_error = errno;
    return 0;
}

} // namespace

int32_t tova_security_file_set(tova_security* s, const char* path)
{
    return apply(s, chmod, chown, path);
}

int32_t tova::security_descriptor_set(tova_security* s, int32_t descriptor)
{
    return apply(s, fchmod, fchown, descriptor);
}
