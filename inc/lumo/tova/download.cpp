// A request's answer into a file, which appears whole or not at all.
#include "lumo/tova/file.h"
#include "lumo/tova/thread.h"
#include "lumo/tova/tova-web.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>

namespace {

// A string that is released with its scope.
struct scoped_string : tova_string
{
    scoped_string() { tova_string_init(this); }
    ~scoped_string() { tova_string_clear(this); }
};

// A download on its way into a neighbour of its target.
struct download
{
    tova_file file;
    bool failed = false;

    static void body(void* user, const void* bytes, uint32_t count, tova_http_response*)
    {
        auto* self = static_cast<download*>(user);
        // A failure is kept: a later block that fits must not hide the gap.
        self->failed = self->failed || !tova_file_write(&self->file, bytes, count);
    }

    // Stops the transfer when a write has failed, on a full disk for example.
    static int32_t progress(void* user, uint64_t, uint64_t) { return !static_cast<download*>(user)->failed; }
};

// Creates a file beside `path` and gives its name. An existing file, left behind or placed there as a link, is never
// opened.
bool open_neighbour(tova_file* file, const char* path, tova_string* name)
{
    // With a number for each download, a name can only exist when a crash left it behind.
    static uint32_t downloads;
    tova_file_init(file);
    for (int tries = 0; tries < 100; ++tries) {
        char ending[48];
        tova_sprintf(ending, sizeof ending, ".%d-%u.part", tova_process_id(),
                     __atomic_add_fetch(&downloads, 1, __ATOMIC_RELAXED));
        tova_string_set(name, path);
        tova_string_append(name, ending);
        file->_file = open(tova_string_get(name), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (file->_file != INVALID_FILE)
            return true;
        if (errno != EEXIST && errno != EINTR)
            return false;
    }
    return false;
}

} // namespace

int32_t tova_http_to_file(tova_http* h, const char* path)
{
    tova_assert(h);
    tova_assert(h->_version == tova_version);
    tova_assert(path);
    download target;
    scoped_string neighbour;
    if (!open_neighbour(&target.file, path, &neighbour))
        return 0;
    // A separate response, whose callbacks write the file.
    tova_http_response r;
    tova_http_response_create(&r);
    tova_http_response_callback_set(&r, &target, download::body, nullptr, download::progress);
    // Renamed only when whole; otherwise the temporary file is removed.
    const bool done = tova_http_request(h, &r, tova_http_get) && !target.failed;
    tova_http_response_destroy(&r);
    tova_file_close(&target.file);
    if (done && rename(tova_string_get(&neighbour), path) == 0)
        return 1;
    tova_file_remove(tova_string_get(&neighbour));
    return 0;
}
