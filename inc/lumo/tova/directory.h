// Directories: make, remove, ask about, and where the standard ones are.
//
// Paths are UTF-8 as the system takes them, absolute or from the working directory. Any thread may call; nothing is
// remembered between calls.
#pragma once

#include "lumo/tova/base.h"
#include "lumo/tova/security.h"

TOVA_C_BEGIN

/// The standard directories.
enum
{
    /// Temporary files.
    tova_directory_temporary = 0,
    /// The working directory.
    tova_directory_current = 1,
    /// The running program's directory, or its bundle where there are such.
    tova_directory_process = 2,
    /// The user's documents.
    tova_directory_documents = 3,
    /// The user's data of applications.
    tova_directory_application_support = 4
};

/// 1 when `path` is a directory; follows symbolic links.
TOVA_API int32_t tova_directory_exists(const char* path);

/// Removes an empty directory: 1 when done.
TOVA_API int32_t tova_directory_remove(const char* path);

/// Makes a directory with the permission bits of `security` (null: 0777) less the process's mask: 1 when made.
///
/// With a non-zero `recursive` missing parents are made too, the same way; their path has at most 1,023 characters
/// or it aborts. A directory that exists is a 0; so is a relative path of one name whose parent is gone.
TOVA_API int32_t tova_directory_create(const char* path, const tova_security* security, int32_t recursive);

/// Writes the path of a standard directory into `buffer`, as the system gives it, no "/" added; empty when unknown.
///
/// `size` counts the terminator. Too small a buffer aborts for kinds 0, 3 and 4 and gives the empty text for the
/// other two. An unknown kind aborts.
TOVA_API void tova_directory_get(int32_t kind, char* buffer, unsigned size);

TOVA_C_END
