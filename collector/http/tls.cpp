#include "tls.h"

#include <stdexcept>

namespace http {

namespace ssl = boost::asio::ssl;

Tls::Tls(std::string certificate_file, std::string key_file)
    : m_certificate_file(std::move(certificate_file)), m_key_file(std::move(key_file)), m_context(load())
{}

// TLS 1.2 at least (RFC 8996 retires what is older); the ciphers are those of the system's OpenSSL.
std::shared_ptr<ssl::context> Tls::load() const
{
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    context->set_options(ssl::context::default_workarounds | ssl::context::no_sslv2 | ssl::context::no_sslv3 |
                         ssl::context::no_tlsv1 | ssl::context::no_tlsv1_1);
    boost::system::error_code error;
    context->use_certificate_chain_file(m_certificate_file, error);
    if (error)
        throw std::runtime_error("no certificate can be read from " + m_certificate_file + ": " + error.message());
    context->use_private_key_file(m_key_file, ssl::context::pem, error);
    if (error)
        throw std::runtime_error("no key of that certificate can be read from " + m_key_file + ": " + error.message());
    return context;
}

std::shared_ptr<ssl::context> Tls::context() const
{
    std::lock_guard hold(m_lock);
    return m_context;
}

std::string Tls::reload()
{
    try {
        auto context = load();
        std::lock_guard hold(m_lock);
        m_context = std::move(context);
        return {};
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

} // namespace http
