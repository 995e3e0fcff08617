#include "upload.h"

#include <cstring>
#include <list>
#include <memory_resource>

namespace store {

struct Upload::Memory
{
    std::pmr::monotonic_buffer_resource pool;
    std::list<std::string> held;
    size_t bytes = 0;
};

Upload::Upload() : m_spMemory(std::make_unique<Memory>()) {}
Upload::Upload(Upload&&) noexcept = default;
Upload& Upload::operator=(Upload&&) noexcept = default;
Upload::~Upload() = default;

std::string_view Upload::keep(std::string_view text)
{
    if (text.empty())
        return {};
    char* copy = static_cast<char*>(m_spMemory->pool.allocate(text.size(), 1));
    memcpy(copy, text.data(), text.size());
    m_spMemory->bytes += text.size();
    return {copy, text.size()};
}

std::string& Upload::hold(std::string text)
{
    m_spMemory->bytes += text.capacity();
    return m_spMemory->held.emplace_back(std::move(text));
}

size_t Upload::bytes() const
{
    return sizeof *this + m_spMemory->bytes + lines.capacity() * sizeof(Line) + events.capacity() * sizeof(Event) +
           rejects.capacity() * sizeof(Reject) + properties.capacity() * sizeof(Property);
}

} // namespace store
