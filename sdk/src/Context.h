// What every event of a session begins with, where the host wants it: stamps, then members of its context.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/host.h"

namespace AnalyticsSDK {

/// Stamps of an event, as bits of the option `stamp`: the order is that in which they are written.
enum Stamp : unsigned
{
    stamp_time_ms = 1,
    stamp_sequence = 2,
    stamp_session = 4,
    stamp_event = 8
};

/// Used by the thread that drives the session. Members are kept as ready text: an event costs one copy of it.
class Context
{
public:
    static constexpr size_t most = 64;

    /// Sets a member; one that is there keeps its place. @return false when there is room for no other
    template <typename Value>
    bool Set(const char* name, Value value);
    /// Removes a member, if it is there.
    void Remove(const char* name);

    /// What an event begins with, its brace included; empty when that is the brace alone. Valid until the next call.
    /// Counts the event when it is stamped.
    std::string_view Begin(unsigned stamps);

private:
    struct Member
    {
        std::string name, text;
    };

    std::vector<Member>::iterator Find(const char* name);
    bool Put(const char* name, std::string_view document);
    void Join();
    void StartSession();
    char* PutStamps(char* out, unsigned stamps);
    void PutEventId(char* out, uint64_t now_ms);

    static constexpr size_t id_size = 32;
    static constexpr size_t stamps_room = 256; ///< their names, two ids and two numbers of at most 20 digits

    std::vector<Member> m_members;
    std::string m_joined; ///< the members' texts and the brace before them; empty without members
    std::string m_begun;  ///< of the last event, and room behind it
    uint64_t m_sequence = 0;
    uint64_t m_lastId = 0; ///< the ordered half of the last event's id
    uint64_t m_seed = 0;
    char m_session[id_size] = "";
    bool m_hasSession = false; ///< the session's id and the seed are made when they are first needed
};

} // namespace AnalyticsSDK
