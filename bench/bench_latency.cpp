// From queueing a request to its first byte at the server, with the connection open: what a host waits for, at least.
#include "table.h"

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/WebClient.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

using clock = std::chrono::steady_clock;

/// Notes when the first bytes of each request arrive; answers, or keeps the connection open without an answer.
class Server
{
public:
    explicit Server(bool answers) : m_answers(answers)
    {
        m_socket = socket(AF_INET, SOCK_STREAM, 0);
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK); // any free port, and no other machine
        socklen_t size = sizeof m_address;
        if (bind(m_socket, address(), size) != 0 || getsockname(m_socket, address(), &size) != 0 ||
            listen(m_socket, 4) != 0)
            throw std::runtime_error("no server for the latency rows");
        m_thread = std::thread([this] { serve(); });
    }
    /// Every client must have left.
    ~Server()
    {
        shutdown(m_socket, SHUT_RDWR);
        m_thread.join();
        close(m_socket);
    }

    sockaddr* address() { return reinterpret_cast<sockaddr*>(&m_address); }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(ntohs(m_address.sin_port)) + "/"; }
    /// When the request after `seen` others arrived.
    clock::time_point arrival(int seen)
    {
        std::unique_lock hold(m_lock);
        m_arrived.wait(hold, [&] { return m_requests > seen; });
        return m_last;
    }
    int requests()
    {
        std::lock_guard hold(m_lock);
        return m_requests;
    }

private:
    // One client at a time is all that is asked for.
    void serve()
    {
        for (int client; (client = accept(m_socket, nullptr, nullptr)) >= 0; close(client)) {
            char bytes[65536];
            while (recv(client, bytes, sizeof bytes, 0) > 0) {
                note(clock::now());
                constexpr char reply[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
                if (m_answers && send(client, reply, sizeof reply - 1, MSG_NOSIGNAL) < 0)
                    break;
            }
        }
    }
    void note(clock::time_point when)
    {
        std::lock_guard hold(m_lock);
        m_last = when;
        ++m_requests;
        m_arrived.notify_all();
    }

    bool m_answers;
    int m_socket;
    sockaddr_in m_address{};
    std::mutex m_lock;
    std::condition_variable m_arrived;
    clock::time_point m_last;
    int m_requests = 0;
    std::thread m_thread; ///< last: it uses all of the above from its start
};

/// The least that wakes a thread and sends: a bare condition variable and a socket.
class BareSender
{
public:
    explicit BareSender(Server& server) : m_socket(socket(AF_INET, SOCK_STREAM, 0))
    {
        // As libcurl sets it: without, the kernel may wait for more to send.
        const int at_once = 1;
        setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
        if (connect(m_socket, server.address(), sizeof(sockaddr_in)) != 0)
            throw std::runtime_error("no connection for the latency rows");
        m_thread = std::thread([this] { run(); });
    }
    ~BareSender()
    {
        set(m_stop);
        m_thread.join();
        close(m_socket);
    }
    void send_one() { set(m_go); }

private:
    void set(bool& flag)
    {
        std::lock_guard hold(m_lock);
        flag = true;
        m_changed.notify_one();
    }
    void run()
    {
        const std::string request(465, 'x'); // as long as ours
        for (;;) {
            std::unique_lock hold(m_lock);
            m_changed.wait(hold, [this] { return m_go || m_stop; });
            if (m_stop)
                return;
            m_go = false;
            hold.unlock();
            if (send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) < 0)
                return;
        }
    }

    int m_socket;
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_go = false, m_stop = false;
    std::thread m_thread;
};

/// A web client with one request at a time.
class Queue : AnalyticsSDK::IProgressCallback
{
public:
    Queue() { client.Init(true); }
    ~Queue() { client.Close(); }
    void hold(const std::string& url)
    {
        client.QueueRequest(url.c_str(), nullptr, AnalyticsSDK::RequestTypeGet, nullptr, "");
    }
    void post(const std::string& url)
    {
        client.QueueRequest(url.c_str(), this, AnalyticsSDK::RequestTypePost, &form, "");
    }
    void wait()
    {
        std::unique_lock hold(m_lock);
        m_changed.wait(hold, [this] { return m_ended; });
        m_ended = false;
    }

private:
    void OnDownloadComplete(const char*) override
    {
        std::lock_guard hold(m_lock);
        m_ended = true;
        m_changed.notify_one();
    }
    // A measurement with a failed request is invalid.
    void OnDownloadCancel(const char*) override { std::abort(); }
    void OnDownloadError(const char*, long) override { std::abort(); }
    void OnProxyAuthenticationError(const char*, long, const char*) override { std::abort(); }
    void OnProgressUpdate(const char*, double, double, double) override {}

    AnalyticsSDK::WebClient client;
    std::map<std::string, std::string> form{{"data", "[3,\"an event\"]\n"}, {"g", "id"}};
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_ended = false;
};

/// The median, in microseconds, of many times from `start` to the arrival at the server.
template <class Start, class Finish>
double median_latency(Server& server, Start start, Finish finish)
{
    std::vector<double> all;
    for (int turn = 0; turn < 200; ++turn) {
        // Both threads are asleep by then, as they are in a host.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const int seen = server.requests();
        const auto begin = clock::now();
        start();
        all.push_back(std::chrono::duration<double, std::micro>(server.arrival(seen) - begin).count());
        finish();
    }
    return median(all);
}

void measure(Table& table)
{
    Server answering(true), silent(false), reference(false);
    BareSender bare(reference);
    Queue queue;
    const auto ours = [&] {
        return median_latency(
            answering, [&] { queue.post(answering.url()); }, [&] { queue.wait(); });
    };
    const auto theirs = [&] {
        return median_latency(
            reference, [&] { bare.send_one(); }, [] {});
    };
    const char* against = "condition variable + raw send";
    table.row("queue to first byte, idle", against, compare_figures(ours, theirs, "us"), at_most(6, 3.5));
    // From here on a second transfer stays open, which the worker handles too.
    queue.hold(silent.url());
    silent.arrival(0);
    table.row("queue to first byte, one held open", against, compare_figures(ours, theirs, "us"), at_most(6, 3.5));
}

const Group latency_rows("latency", measure);

} // namespace
} // namespace bench
