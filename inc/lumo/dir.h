// Directories as text.
#pragma once

#include "lumo/tova/base.h"

#include <string>

namespace lumo {

/// A holder of directory look-ups.
struct dir
{
    /// The directory of the running program, UTF-8, without a trailing "/"; empty when the system does not tell.
    TOVA_API static std::string process();
};

} // namespace lumo
