#include "row_binary.h"

namespace store::clickhouse {

RowWriter& RowWriter::array_size(uint64_t count)
{
    for (; count >= 0x80; count >>= 7)
        m_out += static_cast<char>(count | 0x80);
    m_out += static_cast<char>(count);
    return *this;
}

RowWriter& RowWriter::text(std::string_view value)
{
    array_size(value.size());
    return fixed(value);
}

RowWriter& RowWriter::fixed(std::string_view bytes)
{
    m_out.append(bytes);
    return *this;
}

uint64_t RowReader::length()
{
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        uint8_t byte = u8();
        value |= uint64_t(byte & 0x7f) << shift;
        if (byte < 0x80)
            return value;
    }
    m_is_ok = false;
    return 0;
}

// Each element takes a byte at least, so a length that a broken answer makes up takes no memory.
uint64_t RowReader::array_size()
{
    uint64_t count = length();
    m_is_ok = m_is_ok && count <= m_rest.size();
    return m_is_ok ? count : 0;
}

std::string_view RowReader::text()
{
    return fixed(length());
}

std::string_view RowReader::fixed(size_t bytes)
{
    m_is_ok = m_is_ok && bytes <= m_rest.size();
    if (!m_is_ok)
        return {};
    std::string_view value = m_rest.substr(0, bytes);
    m_rest.remove_prefix(bytes);
    return value;
}

} // namespace store::clickhouse
