#include "lumo/text_buffer.h"

#include <algorithm>
#include <cstring>

namespace lumo {

namespace {

// The first block from the heap: a typical event fits, and the allocator serves this size from its quickest list.
constexpr std::size_t first_block = 1008;

} // namespace

void text_buffer::append(std::string_view text)
{
    char* out = reserve(text.size());
    // An empty view may point nowhere, which memcpy must not see even for nothing.
    if (!text.empty())
        std::memcpy(out, text.data(), text.size());
    commit(out + text.size());
}

void text_buffer::grow(std::size_t count)
{
    const std::string_view old = view();
    const std::size_t doubled = 2 * static_cast<std::size_t>(_limit - begin());
    // Doubling keeps the copying linear however long the text gets. The old block goes last: if there is no new one,
    // the text is as it was.
    const std::size_t capacity = std::max({first_block, doubled, old.size() + count + 1});
    scoped_array<char> block(new char[capacity]);
    std::memcpy(block.Get(), old.data(), old.size());
    _end = block.Get() + old.size();
    _limit = block.Get() + capacity - 1;
    _heap = std::move(block);
}

} // namespace lumo
