#include "sessions.h"

#include <algorithm>
#include <charconv>
#include <sodium.h>

namespace http {
namespace {

std::string hex(const unsigned char* bytes, size_t size)
{
    std::string digits(size * 2 + 1, '\0');
    sodium_bin2hex(digits.data(), digits.size(), bytes, size);
    digits.pop_back();
    return digits;
}

std::string hex(const std::string& text)
{
    return hex(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

std::string text_of(const std::string& digits)
{
    std::string text(digits.size() / 2, '\0');
    size_t size = 0;
    const int read = sodium_hex2bin(reinterpret_cast<unsigned char*>(text.data()), text.size(), digits.data(),
                                    digits.size(), nullptr, &size, nullptr);
    return read == 0 ? text.substr(0, size) : std::string();
}

/// The parts of a cookie as they stand; false when it has not the form of one.
bool split(const std::string& cookie, Session& session, std::string& signature)
{
    const size_t until = cookie.find('.'), user = cookie.find('.', until + 1), end = cookie.find('.', user + 1);
    if (std::count(cookie.begin(), cookie.end(), '.') != 3 || until != 32 || cookie.size() - end != 65)
        return false;
    session.number = cookie.substr(0, until);
    session.user = text_of(cookie.substr(user + 1, end - user - 1));
    signature = cookie.substr(end + 1);
    return std::from_chars(&cookie[until + 1], &cookie[user], session.until).ptr == &cookie[user];
}

} // namespace

Sessions::Sessions(std::string secret, Users& users, store::Logouts& logouts)
    : m_secret(std::move(secret)), m_users(users), m_logouts(logouts)
{}

std::string Sessions::sign(const std::string& text, const std::string& password_hash) const
{
    const std::string all = "login\n" + text + "\n" + password_hash;
    unsigned char mac[crypto_auth_hmacsha256_BYTES];
    crypto_auth_hmacsha256_state state;
    crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(m_secret.data()), m_secret.size());
    crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(all.data()), all.size());
    crypto_auth_hmacsha256_final(&state, mac);
    return hex(mac, sizeof mac);
}

std::string Sessions::cookie_of(const std::string& number, const std::string& user, store::Seconds now)
{
    const std::string text = number + "." + std::to_string(now + lasts) + "." + hex(user);
    return text + "." + sign(text, m_users.password_hash(user).value_or(""));
}

std::string Sessions::open(const std::string& user, store::Seconds now)
{
    unsigned char number[16];
    randombytes_buf(number, sizeof number);
    return cookie_of(hex(number, sizeof number), user, now);
}

std::optional<Session> Sessions::check(const std::string& cookie, store::Seconds now)
{
    Session session;
    std::string signature;
    if (!split(cookie, session, signature))
        return std::nullopt;
    const auto password_hash = m_users.password_hash(session.user);
    const std::string right = sign(cookie.substr(0, cookie.rfind('.')), password_hash.value_or(""));
    const bool is_ours = sodium_memcmp(right.data(), signature.data(), right.size()) == 0 && password_hash;
    if (!is_ours || session.until <= now || m_logouts.has_ended(session.number))
        return std::nullopt;
    return session;
}

std::string Sessions::renewed(const Session& session, store::Seconds now)
{
    return session.until - now < lasts - 86400 ? cookie_of(session.number, session.user, now) : std::string();
}

void Sessions::end(const std::string& cookie, store::Seconds now)
{
    // A day more than any of its cookies lasts: another collector may be about to give a later one.
    if (const auto session = check(cookie, now))
        m_logouts.end(session->number, now + lasts + 86400);
}

} // namespace http
