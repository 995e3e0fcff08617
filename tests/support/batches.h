// What a server knows of batches: which lines it has, and which it was told are lost.
#pragma once

#include "support/form.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// A line's identity is its batch and its number there: whatever brings it, and however often, it is kept once.
class Batches
{
public:
    /// Takes an upload's fields. The lines that are new to it; none when the upload is to be refused with 400.
    std::optional<std::vector<std::string_view>> take(const Form& fields);

    /// Lines that limits of the hosts threw away, as far as they are not here all the same.
    uint64_t dropped() const;

private:
    struct Batch
    {
        std::set<uint64_t> stored;
        std::map<uint64_t, uint64_t> told; ///< from a number on up to another, which is not among them; never touching
    };
    static void tell(Batch& batch, uint64_t first, uint64_t end);

    std::map<std::string, Batch> m_batches;
};

} // namespace support
