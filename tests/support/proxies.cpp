#include "support/proxies.h"

#include "support/ports.h"

#include <stdexcept>
#include <unistd.h>

namespace support {

namespace {

bool accepts_connections(int port)
{
    const int client = connect_loopback(port);
    if (client >= 0)
        close(client);
    return client >= 0;
}

} // namespace

std::string ProxyProgram::text() const
{
    return "127.0.0.1:" + std::to_string(m_port);
}

size_t ProxyProgram::log_count(const std::string& text, size_t at_least, milliseconds limit) const
{
    size_t found = 0;
    wait_until(
        [&] {
            const std::string all = log();
            found = 0;
            for (size_t at = all.find(text); at != all.npos; at = all.find(text, at + 1))
                ++found;
            return found >= at_least;
        },
        limit);
    return found;
}

// Somebody may take a free port before the proxy does: then the program ends, and another port is tried.
void ProxyProgram::start(const std::function<std::vector<std::string>(int port)>& prepare)
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        m_port = free_port();
        m_child = std::make_unique<Child>(prepare(m_port));
        wait_until([this] { return accepts_connections(m_port) || m_child->wait(milliseconds(0)); });
        if (!m_child->wait(milliseconds(0)))
            return;
    }
    throw std::runtime_error("the proxy does not start: " + m_child->output() + m_child->errors());
}

Squid::Squid(const ProxyOptions& options)
{
    // Started as root, squid works as another user, who must be able to log here.
    std::filesystem::permissions(m_folder.path(), std::filesystem::perms::all);
    start([&](int port) {
        std::string conf = "http_port 127.0.0.1:" + std::to_string(port) +
                           "\npid_filename none\ncache deny all\nshutdown_lifetime 0 seconds\n"
                           "dns_nameservers 127.0.0.1\nvisible_hostname proxy.test\ncoredump_dir none\n"
                           "access_log stdio:" +
                           m_log + "\ncache_log " + m_folder.file("cache.log") + "\n";
        if (options.user.empty()) {
            conf += "http_access allow all\n";
        } else {
            std::string hash =
                run({"openssl", "passwd", "-apr1", "-stdin"}, ChildOptions{{}, "", options.password + "\n"}).output;
            write_file(m_folder.file("logins"), options.user + ":" + hash);
            conf += "auth_param basic program /usr/lib/squid/basic_ncsa_auth " + m_folder.file("logins") +
                    "\nauth_param basic children 1\nacl auth proxy_auth REQUIRED\n"
                    "http_access allow auth\nhttp_access deny all\n";
        }
        write_file(m_folder.file("conf"), conf);
        // Its shared memory has the name of the service: under one name, squids of different users would exclude each
        // other.
        return std::vector<std::string>{
            "squid", "-N", "-n", "test" + std::to_string(port), "-f", m_folder.file("conf")};
    });
}

} // namespace support
