// Real proxies, run as programs of their own on loopback ports.
#pragma once

#include "support/child.h"
#include "support/scratch.h"

#include <memory>
#include <string>
#include <vector>

namespace support {

struct ProxyOptions
{
    std::string user = {}; ///< when not empty, the proxy asks for this login
    std::string password = {};
};

/// A running proxy. It takes connections when the constructor returns, and is killed when this object goes.
class ProxyProgram
{
public:
    virtual ~ProxyProgram() = default;

    int port() const { return m_port; }
    /// The proxy as clients name it: "127.0.0.1:port".
    std::string text() const;
    /// The proxy's own log so far.
    std::string log() const { return read_file(m_log); }
    /// How often a text stands in that log; waits until it stands there `at_least` times (or the limit is over).
    size_t log_count(const std::string& text, size_t at_least = 1, milliseconds limit = patience) const;

protected:
    /// Runs the command that `prepare` gives for a port, with other ports until one works.
    void start(const std::function<std::vector<std::string>(int port)>& prepare);

    ScratchFolder m_folder;
    const std::string m_log = m_folder.file("log");

private:
    std::unique_ptr<Child> m_child;
    int m_port = 0;
};

/// squid: the textbook proxy. Its log has a line per request: "... TCP_MISS/200 ... POST http://host/ user ...".
class Squid : public ProxyProgram
{
public:
    explicit Squid(const ProxyOptions& options = {});
};

} // namespace support
