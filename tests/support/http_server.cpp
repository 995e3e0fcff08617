#include "support/http_server.h"

#include <cctype>
#include <httplib.h>
#include <stdexcept>

namespace support {

namespace {

HttpServer::Handler always(int status)
{
    return [status](const Request&) { return Reply{status}; };
}

} // namespace

std::string Request::header(const std::string& name) const
{
    auto found = headers.find(name);
    return found == headers.end() ? std::string() : found->second;
}

HttpServer::HttpServer(int status) : HttpServer(always(status)) {}

HttpServer::HttpServer(Handler handler) : HttpServer(std::make_unique<httplib::Server>(), "http", std::move(handler)) {}

HttpServer::HttpServer(std::unique_ptr<httplib::Server> server, const char* scheme, Handler handler)
    : m_server(std::move(server)), m_scheme(scheme), m_handler(std::move(handler))
{
    if (!m_server->is_valid())
        throw std::runtime_error("the server's certificate or key is unusable");
    // Kept connections hold a thread each, and stop() waits for them: many threads, and a short wait for a next
    // request.
    m_server->new_task_queue = [] { return new httplib::ThreadPool(16); };
    m_server->set_keep_alive_max_count(1'000'000);
    m_server->set_keep_alive_timeout(1);
    m_server->set_read_timeout(30);
    m_server->set_write_timeout(30);
    m_server->set_tcp_nodelay(true);
    m_server->Get(".*", [this](const auto& got, auto& answer) { serve(got, answer, nullptr); });
    m_server->Post(".*", [this](const auto& got, auto& answer, const httplib::ContentReader& reader) {
        serve(got, answer, &reader);
    });
    m_port = m_server->bind_to_any_port("127.0.0.1");
    if (m_port <= 0)
        throw std::runtime_error("no loopback port");
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    wait_until([this] { return m_server->is_running(); });
}

HttpServer::~HttpServer()
{
    stop();
}

namespace {

void read_body(const httplib::Request& got, const httplib::ContentReader& reader, Request& request)
{
    std::string field;
    if (got.is_multipart_form_data()) {
        reader([&](const httplib::MultipartFormData& part) { return request.form[field = part.name].clear(), true; },
               [&](const char* data, size_t size) { return request.form[field].append(data, size), true; });
        return;
    }
    reader([&](const char* data, size_t size) { return request.body.append(data, size), true; });
    if (request.header("content-type").find("application/x-www-form-urlencoded") == 0)
        request.form = parse_form(request.body);
}

} // namespace

void HttpServer::serve(const httplib::Request& got, httplib::Response& answer, const httplib::ContentReader* reader)
{
    auto request = std::make_shared<Request>();
    request->method = got.method;
    request->target = got.target;
    request->client_port = got.remote_port;
    for (const auto& [name, value] : got.headers) {
        std::string lower = name;
        for (char& c : lower)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        request->headers.emplace(std::move(lower), value);
    }
    if (reader)
        read_body(got, *reader, *request);
    Handler handler;
    {
        std::lock_guard hold(m_lock);
        m_requests.push_back(request);
        handler = m_handler;
    }
    Reply reply = handler(*request);
    answer.status = reply.status;
    for (const auto& [name, value] : reply.headers)
        answer.set_header(name, value);
    answer.set_content(std::move(reply.body), "text/plain");
}

std::string HttpServer::url(const std::string& path, const std::string& host) const
{
    return std::string(m_scheme) + "://" + host + ":" + std::to_string(m_port) + path;
}

void HttpServer::answer(Handler handler)
{
    std::lock_guard hold(m_lock);
    m_handler = std::move(handler);
}

void HttpServer::answer(int status)
{
    answer(always(status));
}

void HttpServer::stop()
{
    if (!m_thread.joinable())
        return;
    m_server->stop();
    m_thread.join();
}

std::vector<Request> HttpServer::requests() const
{
    std::lock_guard hold(m_lock);
    std::vector<Request> all;
    for (const auto& request : m_requests)
        all.push_back(*request);
    return all;
}

size_t HttpServer::count() const
{
    std::lock_guard hold(m_lock);
    return m_requests.size();
}

bool HttpServer::wait_for(size_t requests, milliseconds limit) const
{
    return wait_until([&] { return count() >= requests; }, limit);
}

HttpsServer::HttpsServer(const Certificate& certificate, int status) : HttpsServer(certificate, always(status)) {}

HttpsServer::HttpsServer(const Certificate& certificate, Handler handler)
    : HttpServer(std::make_unique<httplib::SSLServer>(certificate.file.c_str(), certificate.key_file.c_str()), "https",
                 std::move(handler))
{}

} // namespace support
