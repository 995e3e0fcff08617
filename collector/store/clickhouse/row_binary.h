// The engine's format RowBinary: the values of a row one behind the other, numbers little-endian, a text or an array
// behind its length as a LEB128 number.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace store::clickhouse {

static_assert(std::endian::native == std::endian::little);

/// Appends to a text.
class RowWriter
{
public:
    explicit RowWriter(std::string& out) : m_out(out) {}

    template <class Number>
    RowWriter& number(Number value)
    {
        char bytes[sizeof value];
        memcpy(bytes, &value, sizeof value);
        m_out.append(bytes, sizeof value);
        return *this;
    }
    RowWriter& u8(uint8_t value) { return number(value); }
    RowWriter& u16(uint16_t value) { return number(value); }
    RowWriter& u32(uint32_t value) { return number(value); }
    RowWriter& u64(uint64_t value) { return number(value); }
    RowWriter& i32(int32_t value) { return number(value); }
    RowWriter& i64(int64_t value) { return number(value); }
    RowWriter& f64(double value) { return number(value); }
    /// The number of elements that follow.
    RowWriter& array_size(uint64_t count);
    RowWriter& text(std::string_view value);
    /// The bytes as they are: FixedString of their number.
    RowWriter& fixed(std::string_view bytes);

private:
    std::string& m_out;
};

/// Reads rows. After a fault, which an answer cut short is, everything reads as 0 or empty and ok() is false.
class RowReader
{
public:
    explicit RowReader(std::string_view rows) : m_rest(rows) {}

    template <class Number>
    Number number()
    {
        Number value{};
        if (std::string_view bytes = fixed(sizeof value); !bytes.empty())
            memcpy(&value, bytes.data(), sizeof value);
        return value;
    }
    uint8_t u8() { return number<uint8_t>(); }
    uint16_t u16() { return number<uint16_t>(); }
    uint32_t u32() { return number<uint32_t>(); }
    uint64_t u64() { return number<uint64_t>(); }
    int32_t i32() { return number<int32_t>(); }
    int64_t i64() { return number<int64_t>(); }
    double f64() { return number<double>(); }
    /// Never more than there are bytes left.
    uint64_t array_size();
    /// A slice of what is read.
    std::string_view text();
    std::string_view fixed(size_t bytes);

    bool ok() const { return m_is_ok; }
    /// Nothing is left, or there was a fault: `while (!rows.done())`.
    bool done() const { return m_rest.empty() || !m_is_ok; }

private:
    uint64_t length();

    std::string_view m_rest;
    bool m_is_ok = true;
};

} // namespace store::clickhouse
