// The system's proxy settings for a URL.
#pragma once

#include "lumo/tova/base.h"

#include <string>

namespace lumo {

/// Holder of the look-up.
struct proxy
{
    /// Asks the system which proxies apply to `url`.
    ///
    /// Both texts are lists separated by semicolons or spaces. Returns false, and leaves both alone, when the system
    /// names no proxy. Any thread.
    TOVA_API static bool get_for_url(const char* url, std::string& proxies, std::string& bypass);
};

} // namespace lumo
