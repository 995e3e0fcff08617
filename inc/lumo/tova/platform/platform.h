// The contract between the portability layer and an operating system: what POSIX leaves open, and nothing else.
//
// One folder beside this file fills it per system; CMake chooses the folder. Not installed.
//
// What holds for every call: any thread may call at any time, before tova_initialize() and after tova_shutdown() too.
// No call takes a lock of the library, keeps state that a caller could see, logs or aborts; failures are results.
#pragma once

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

struct stat;

namespace tova::platform {

/// Nanoseconds of a clock tick: numerator / denominator. Neither is 0.
struct time_base
{
    uint32_t numerator;
    uint32_t denominator;
};

/// The length of a tick of clock_ticks(): the same at each call for as long as the process runs. Cannot fail.
time_base clock_time_base();

/// Ticks of a monotonic clock since an arbitrary moment: never less than an earlier result on any thread, and not
/// affected by setting the time of day. It may stop while the machine sleeps. Cannot fail, does not block.
uint64_t clock_ticks();

/// The system's number of the calling thread: not 0, different from that of every other living thread of the process,
/// the same for the whole life of the thread. Numbers may be reused after a thread's end. Cannot fail.
uint32_t thread_number();

/// The directory for temporary files. `size` is the room of `buffer`, terminator included, and at least 1.
///
/// True: `buffer` holds a terminated absolute path, which need not exist. False: there is none, it cannot be read, or
/// it needs more than `size` bytes; what `buffer` then holds is unspecified. May read files and the environment (a host
/// must not change its environment meanwhile), so the result may differ from call to call. The same for the next three.
bool temporary_directory(char* buffer, size_t size);
/// The directory of the running program's file, or of its bundle where the system has bundles.
bool process_directory(char* buffer, size_t size);
/// The user's documents.
bool documents_directory(char* buffer, size_t size);
/// The user's data of applications.
bool application_support_directory(char* buffer, size_t size);

/// Tells the system that all of this memory will be written soon, so that it may use large pages.
///
/// The memory belongs to the caller, who does not release it during the call; its content does not change. Any address
/// and size are allowed. A system that cannot do this does nothing: there is no failure. Leaves errno undefined.
void expect_large_use(void* memory, size_t size);

/// The same as socket(), but closed in programs that the host starts.
///
/// Returns a descriptor that the caller closes, or -1 with errno from socket(). Where the system can set the flag in
/// the same call, no program inherits the socket; elsewhere one that starts during the call may.
int open_socket(int family, int type, int protocol);

/// fstat() without the times: sets device, inode, type and mode, links, owner and size; what the other members hold is
/// unspecified.
///
/// False with errno where fstat() fails. Cheaper for a file that is written to between two calls, as the times of a
/// file that were read must be made new by its next write.
bool file_status(int file, struct stat& status);

/// Marks an open file, so that has_mark() tells it from whatever else the host may open with that number later. False
/// where the system has no such mark. A duplicate of the descriptor has it too; closing the last one ends it.
bool mark_file(int file);
/// Whether mark_file() has marked the open file that this descriptor belongs to now; false for a closed one.
bool has_mark(int file);

/// write(), with its results and its errno, EINTR included.
///
/// Where the system allows it, this is no place at which pthread_cancel() ends the thread: such a place costs two
/// locked instructions, and a thread that ended there would leave half a line and the locks that it holds.
ssize_t write_file(int file, const void* data, size_t size);

} // namespace tova::platform
