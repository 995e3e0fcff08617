// A named semaphore of the system, which all processes that know the name share.
#include "lumo/tova/global_event.h"

#include <cstring>
#include <fcntl.h>

namespace {

void check(const tova_global_event* ge)
{
    tova_assert(ge);
    tova_assert(ge->_version == tova_version);
}

void check_open(const tova_global_event* ge)
{
    check(ge);
    // clang-format off
    tova_assert(ge->_sem != (sem_t *) SEM_FAILED);
    // clang-format on
}

// The system wants a slash before the name and none in it. A backslash is refused as well, so that a name means the
// same on systems that separate with it.
void tova_global_event_unix_name(tova_global_event* ge, const char* name)
{
    tova_assert(name);
    tova_assert(strchr(name, '\\') == NULL);
    tova_assert(strchr(name, '/') == NULL);
    const size_t length = strlen(name);
    if (length + 2 > sizeof ge->_name)
        tova_assert(false);
    ge->_name[0] = '/';
    memcpy(ge->_name + 1, name, length + 1);
}

// Stamps the record and opens its semaphore with `flags`.
int32_t open_named(tova_global_event* ge, const char* name, int flags)
{
    tova_assert(ge);
    memset(ge, 0, sizeof *ge);
    ge->_version = tova_version;
    tova_global_event_unix_name(ge, name);
    // Writable for all: the processes that share an event may run as different users.
    ge->_sem = sem_open(ge->_name, flags, 0666, 0);
    return ge->_sem != SEM_FAILED;
}

} // namespace

int32_t tova_global_event_create(tova_global_event* ge, const char* name)
{
    return open_named(ge, name, O_CREAT);
}

int32_t tova_global_event_exists(const char* name)
{
    // The system only tells for certain whether the name can be created.
    tova_global_event trial;
    if (!open_named(&trial, name, O_CREAT | O_EXCL))
        return 1;
    tova_global_event_destroy(&trial);
    return 0;
}

void tova_global_event_destroy(tova_global_event* ge)
{
    tova_assert(ge);
    if (ge->_version != tova_version)
        return;
    ge->_version = 0;
    if (ge->_sem != SEM_FAILED)
        sem_close(ge->_sem);
    ge->_sem = SEM_FAILED;
    // Also when none was open: the name may be left over from a process that died.
    sem_unlink(ge->_name);
}

void tova_global_event_set(tova_global_event* ge)
{
    check_open(ge);
    if (sem_post(ge->_sem) != 0)
        tova_assert(false);
}

void tova_global_event_wait(tova_global_event* ge)
{
    check_open(ge);
    // Deliberate: an interrupted wait aborts too, since there is no result to report it with; see the header.
    if (sem_wait(ge->_sem) != 0)
        tova_assert(false);
}

int32_t tova_global_event_try_wait(tova_global_event* ge)
{
    check_open(ge);
    return sem_trywait(ge->_sem) == 0;
}
