#include "Consent.h"

#include <chrono>
#include <thread>

namespace AnalyticsSDK {

// Counted before the state is read, as a change stores the state before it reads the count: whichever comes second sees
// the other.
Consent::Passage::Passage(Consent& consent, State most)
    : m_holders(most == given ? consent.m_senders : consent.m_writers)
{
    ++m_holders;
    m_open = consent.m_state <= most;
    if (!m_open)
        --m_holders;
}

Consent::Passage::~Passage()
{
    if (m_open)
        --m_holders;
}

// Polled: a change of consent is rare, and an event must not pay for a wake.
void Consent::WaitForHolders() const
{
    const State state = m_state;
    while ((state != given && m_senders != 0) || (state == revoked && m_writers != 0))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

} // namespace AnalyticsSDK
