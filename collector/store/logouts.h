// Logins that were ended before their time. A login is a signed cookie, which any collector with the same secret lets
// in; only a list of the ended ones can take it back.
#pragma once

#include "answers.h"

#include <string>

namespace store {

class Logouts
{
public:
    virtual ~Logouts() = default;
    /// @param session the login's number, 32 hexadecimal digits @param until when its cookie ends by itself: from then
    /// on the number need not be remembered. Any thread.
    virtual void end(const std::string& session, Seconds until) = 0;
    /// Any thread; never waits for a disk or the network.
    virtual bool has_ended(const std::string& session) = 0;
};

} // namespace store
