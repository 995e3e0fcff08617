// Taking event log files into a store: what a host would have sent, from a file of any size.
#pragma once

#include "store/store.h"

#include <functional>
#include <stdexcept>

namespace commands {

/// One sentence for the person at the shell.
struct Failure : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// Takes a file as one upload without a batch, whose sender is the installation of its first good line: a file that has
/// grown adds what is new in it. It is read and written in parts of some megabytes, so that memory does not grow with
/// it and other writers get their turn; what was written when this ends early is known to the next import.
/// @param report  called with the number of bytes that are done
/// @throws Failure when the file cannot be read, holds no event, or the store fails
store::Receipt import_log(store::Writing& writing, const std::string& file,
                          const std::function<void(uint64_t bytes)>& report);

} // namespace commands
