// Directories as text: tova_directory_get() without a buffer.
#pragma once

#include "lumo/tova/base.h"

#include <string>

namespace lumo {

/// A holder of directory look-ups.
struct dir
{
    /// The directory of the running program, UTF-8, without a trailing "/"; empty when the system does not tell.
    ///
    /// That of the program, not of the library, and not the working directory. Asked of the system anew each time. Any
    /// thread; may throw std::bad_alloc.
    TOVA_API static std::string process();
};

} // namespace lumo
