/// @file
/// The server's certificate and key, and reading them again without a restart.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <mutex>
#include <string>

namespace http {

/// Any thread. A connection keeps the context that it began with.
class Tls
{
public:
    /// @throws std::runtime_error with a sentence when the files are no certificate and its key
    Tls(std::string certificate_file, std::string key_file);
    std::shared_ptr<boost::asio::ssl::context> context() const;
    /// @return why the old context stays; empty when the new one counts from the next connection
    std::string reload();

private:
    std::shared_ptr<boost::asio::ssl::context> load() const;
    const std::string m_certificate_file, m_key_file;
    mutable std::mutex m_lock;
    std::shared_ptr<boost::asio::ssl::context> m_context;
};

} // namespace http
