#include "Context.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <ctime>
#include <random>

#include <pthread.h>
#include <unistd.h>

#include "lumo/common.h"
#include "lumo/json_writer.h"

namespace AnalyticsSDK {

namespace {

// A child made by fork() goes on with its parent's session: its ids differ by its process.
uint64_t processMark = 0;

[[maybe_unused]] const int fork_handler =
    pthread_atfork(nullptr, nullptr, [] { processMark = static_cast<uint64_t>(getpid()); });

} // namespace

template <typename Value>
bool Context::Set(const char* name, Value value)
{
    lumo::json_writer document(nullptr, true);
    document.element(name, value);
    return Put(name, document.text.view().substr(2)); // without its brace and blank
}

template bool Context::Set(const char* name, const char* value);
template bool Context::Set(const char* name, long long value);
template bool Context::Set(const char* name, double value);
template bool Context::Set(const char* name, bool value);

std::vector<Context::Member>::iterator Context::Find(const char* name)
{
    return std::find_if(m_members.begin(), m_members.end(), [=](const Member& member) { return member.name == name; });
}

bool Context::Put(const char* name, std::string_view document)
{
    const auto place = Find(name);
    if (place != m_members.end())
        place->text = document;
    else if (m_members.size() < most)
        m_members.push_back({name, std::string(document)});
    else
        return false;
    Join();
    return true;
}

void Context::Remove(const char* name)
{
    if (const auto place = Find(name); place != m_members.end()) {
        m_members.erase(place);
        Join();
    }
}

void Context::Join()
{
    std::string joined;
    for (const Member& member : m_members)
        joined.append(joined.empty() ? "{ " : ", ").append(member.text);
    m_joined = std::move(joined);
}

namespace {

// Eight digits at a time: each half byte of the value goes into a byte of its own, the most significant one first.
void PutHexadecimal(char* out, uint32_t value)
{
    uint64_t digits = value >> 16 | uint64_t{value & 0xffff} << 32;
    digits = (digits >> 8 & 0x000000ff000000ff) | (digits & 0x000000ff000000ff) << 16;
    digits = (digits >> 4 & 0x000f000f000f000f) | (digits & 0x000f000f000f000f) << 8;
    const uint64_t letters = (digits + 0x0606060606060606) >> 4 & 0x0101010101010101;
    digits += 0x3030303030303030 + letters * ('a' - '0' - 10);
    if constexpr (std::endian::native == std::endian::big)
        digits = __builtin_bswap64(digits);
    std::memcpy(out, &digits, sizeof digits);
}

void PutHexadecimal(char* out, uint64_t value)
{
    PutHexadecimal(out, static_cast<uint32_t>(value >> 32));
    PutHexadecimal(out + 8, static_cast<uint32_t>(value));
}

// Returns where the text ends.
template <size_t size>
char* Write(char* out, const char (&literal)[size])
{
    std::memcpy(out, literal, size - 1);
    return out + (size - 1);
}

template <size_t size>
char* Write(char* out, const char (&name)[size], uint64_t number)
{
    out = Write(out, name);
    return out + lumo::put_decimal(out, number);
}

// Spreads what differs in few bits over all of them (the finisher of SplitMix64).
uint64_t Spread(uint64_t value)
{
    value = (value ^ value >> 30) * 0xbf58476d1ce4e5b9;
    value = (value ^ value >> 27) * 0x94d049bb133111eb;
    return value ^ value >> 31;
}

} // namespace

// Ordered by time: milliseconds, then a count within one. A clock that is set back goes on from the last id.
void Context::PutEventId(char* out, uint64_t now_ms)
{
    m_lastId = std::max(now_ms << 16, m_lastId + 1);
    PutHexadecimal(out, m_lastId);
    PutHexadecimal(out + 16, Spread(m_seed + m_sequence * 0x9e3779b97f4a7c15 + (processMark << 32)));
}

void Context::StartSession()
{
    std::random_device random;
    const auto number = [&random] { return static_cast<uint64_t>(random()) << 32 | random(); };
    m_seed = number();
    for (const size_t half : {0, 16})
        PutHexadecimal(m_session + half, number());
    m_hasSession = true;
}

char* Context::PutStamps(char* out, unsigned stamps)
{
    if (!m_hasSession)
        StartSession();
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto now_ms = static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
    ++m_sequence;
    if (stamps & stamp_time_ms)
        out = Write(out, ", \"time_ms\": ", now_ms);
    if (stamps & stamp_sequence)
        out = Write(out, ", \"sequence\": ", m_sequence);
    if (stamps & stamp_session) {
        out = Write(out, ", \"session\": \"");
        std::memcpy(out, m_session, id_size);
        out = Write(out + id_size, "\"");
    }
    if (stamps & stamp_event) {
        out = Write(out, ", \"event\": \"");
        PutEventId(out, now_ms);
        out = Write(out + id_size, "\"");
    }
    return out;
}

std::string_view Context::Begin(unsigned stamps)
{
    if (stamps == 0)
        return m_joined;
    m_begun.resize(stamps_room + m_joined.size());
    char* end = PutStamps(m_begun.data(), stamps);
    m_begun[0] = '{'; // in place of the first comma
    if (!m_joined.empty()) {
        m_joined.copy(end, m_joined.size());
        *end = ','; // in place of the brace
    }
    end += m_joined.size();
    return std::string_view(m_begun).substr(0, static_cast<size_t>(end - m_begun.data()));
}

} // namespace AnalyticsSDK
