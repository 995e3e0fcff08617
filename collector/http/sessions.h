/// @file
/// Logins as signed cookies: whoever has the secret can tell one, so a login at one collector holds at all of them.
#pragma once

#include "users.h"

#include "store/logouts.h"

#include <optional>

namespace http {

/// A login, as its cookie tells it.
struct Session
{
    std::string number; ///< 32 hexadecimal digits
    std::string user;
    store::Seconds until = 0; ///< when it ends by itself
};

/// A cookie is NUMBER.UNTIL.USER.SIGNATURE, the user's name in hexadecimal digits. The signature is HMAC-SHA256 over
/// the three and the user's password hash: a login ends when its user is removed or gets another password. Any thread.
class Sessions
{
public:
    static constexpr store::Seconds lasts = 14 * 86400;

    Sessions(std::string secret, Users& users, store::Logouts& logouts);
    /// A new login's cookie. Of a user that is gone meanwhile it opens nothing.
    std::string open(const std::string& user, store::Seconds now);
    /// The login of a cookie; none when it is not ours, over, ended, or its user's no more.
    std::optional<Session> check(const std::string& cookie, store::Seconds now);
    /// The same login's cookie with a later end, once a day at most; empty before.
    std::string renewed(const Session& session, store::Seconds now);
    /// Ends the login of a cookie wherever it holds; a cookie that is none ends nothing.
    void end(const std::string& cookie, store::Seconds now);

private:
    std::string sign(const std::string& text, const std::string& password_hash) const;
    std::string cookie_of(const std::string& number, const std::string& user, store::Seconds now);

    const std::string m_secret;
    Users& m_users;
    store::Logouts& m_logouts;
};

} // namespace http
