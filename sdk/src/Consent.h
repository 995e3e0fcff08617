// What the user has agreed to, as the host says: whether a session may write events, and whether it may send them.
//
// Whoever writes or sends holds a passage meanwhile. A change that forbids it returns only when nobody holds one that
// it has forbidden, so that what the host promises its user is true from then on.
#pragma once

#include <atomic>
#include <cstdint>

namespace AnalyticsSDK {

/// Any thread.
class Consent
{
public:
    /// In the order of the option's words and of the numbers that hosts use.
    enum State : uint32_t
    {
        given,
        unknown, ///< events are written and wait
        revoked  ///< nothing is written either
    };

    /// Leave to write or to send, for as long as it lives; false when it was refused.
    class Passage
    {
    public:
        Passage(Consent& consent, State most);
        ~Passage();
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;
        explicit operator bool() const { return m_open; }

    private:
        std::atomic<uint32_t>& m_holders;
        bool m_open;
    };

    Passage ToWrite() { return {*this, unknown}; }
    Passage ToSend() { return {*this, given}; }

    State Get() const { return m_state; }
    bool AllowsSending() const { return m_state == given; }
    /// Changes what later passages get; those that are held stay.
    void Set(State state) { m_state = state; }
    /// Waits until nobody holds a passage that would be refused now. Not for a thread that holds one itself.
    void WaitForHolders() const;

private:
    std::atomic<State> m_state{given};
    std::atomic<uint32_t> m_writers{0}, m_senders{0};
};

} // namespace AnalyticsSDK
