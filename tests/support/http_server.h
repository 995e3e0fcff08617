// A real HTTP or HTTPS server on a loopback port that the system chooses. It records what it receives.
//
// Building one makes this whole process ignore SIGPIPE; what a broken connection does to a host that does not
// is tested in a child process.
#pragma once

#include "support/certificates.h"
#include "support/form.h"
#include "support/wait.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
class ContentReader;
} // namespace httplib

namespace support {

struct Request
{
    std::string method;
    std::string target;                              ///< as sent, with the query
    std::multimap<std::string, std::string> headers; ///< names in lower case
    std::string body;                                ///< empty for a multipart form
    Form form;                                       ///< decoded, of either form type
    int client_port = 0;                             ///< the same for requests on one kept connection

    /// The header of that name (in lower case), or the empty text.
    std::string header(const std::string& name) const;
    bool has_header(const std::string& name) const { return headers.count(name) != 0; }
};

struct Reply
{
    int status = 200;
    std::string body = {};
    std::multimap<std::string, std::string> headers = {};
};

class HttpServer
{
public:
    /// Runs on the server's threads; several requests may be in it at once.
    using Handler = std::function<Reply(const Request&)>;

    /// Answers every request with that status and an empty body.
    explicit HttpServer(int status = 200);
    explicit HttpServer(Handler handler);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    int port() const { return m_port; }
    std::string url(const std::string& path = "/collect", const std::string& host = "127.0.0.1") const;
    /// Later requests are answered so.
    void answer(Handler handler);
    void answer(int status);
    /// Takes no further connections. Waits for requests that are being answered.
    void stop();

    /// What was received whole so far, in order of arrival.
    std::vector<Request> requests() const;
    size_t count() const;
    bool wait_for(size_t requests, milliseconds limit = patience) const;

protected:
    HttpServer(std::unique_ptr<httplib::Server> server, const char* scheme, Handler handler);

private:
    void serve(const httplib::Request& got, httplib::Response& answer, const httplib::ContentReader* reader);

    std::unique_ptr<httplib::Server> m_server;
    const char* m_scheme;
    int m_port = 0;
    std::thread m_thread;
    mutable std::mutex m_lock;
    Handler m_handler;
    std::vector<std::shared_ptr<const Request>> m_requests;
};

/// The same over TLS, with a certificate from the test's own authority.
class HttpsServer : public HttpServer
{
public:
    explicit HttpsServer(const Certificate& certificate, int status = 200);
    HttpsServer(const Certificate& certificate, Handler handler);
};

} // namespace support
