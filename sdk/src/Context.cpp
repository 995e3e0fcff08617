#include "Context.h"

#include <algorithm>
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
        joined += (joined.empty() ? "" : ", ") + member.text;
    m_joined = std::move(joined);
}

namespace {

void PutHexadecimal(char* out, uint64_t value)
{
    for (int at = 15; at >= 0; --at, value >>= 4)
        out[at] = lumo::hexadecimal_digits[value & 15];
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
std::string_view Context::EventId(uint64_t now_ms)
{
    m_lastId = std::max(now_ms << 16, m_lastId + 1);
    PutHexadecimal(m_id, m_lastId);
    PutHexadecimal(m_id + 16, Spread(m_seed + m_sequence * 0x9e3779b97f4a7c15 + (processMark << 32)));
    return {m_id, sizeof m_id};
}

namespace {

std::string NewSession()
{
    std::random_device random;
    std::string id(32, '\0');
    for (int half : {0, 16})
        PutHexadecimal(id.data() + half, static_cast<uint64_t>(random()) << 32 | random());
    return id;
}

} // namespace

void Context::WriteStamps(unsigned stamps)
{
    if (m_session.empty()) {
        std::random_device random;
        m_seed = static_cast<uint64_t>(random()) << 32 | random();
        m_session = NewSession();
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto now_ms = static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
    ++m_sequence;
    char digits[lumo::number_room];
    if (stamps & stamp_time_ms)
        m_begun.append(", \"time_ms\": ").append(digits, lumo::put_decimal(digits, now_ms));
    if (stamps & stamp_sequence)
        m_begun.append(", \"sequence\": ").append(digits, lumo::put_decimal(digits, m_sequence));
    if (stamps & stamp_session)
        m_begun.append(", \"session\": \"").append(m_session).append("\"");
    if (stamps & stamp_event)
        m_begun.append(", \"event\": \"").append(EventId(now_ms)).append("\"");
}

std::string_view Context::Begin(unsigned stamps)
{
    if (stamps == 0 && m_joined.empty())
        return {};
    m_begun.clear();
    if (stamps != 0)
        WriteStamps(stamps);
    if (!m_joined.empty())
        m_begun.append(", ").append(m_joined);
    m_begun[0] = '{'; // in place of the first comma
    return m_begun;
}

} // namespace AnalyticsSDK
