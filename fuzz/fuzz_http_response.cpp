// A hostile server: whatever it answers, a request ends, tells so exactly once, and keeps no more than was sent.
//
// The answer is the input; one server thread gives it to every connection, redirected ones included. All of it happens
// in a network of its own that has nothing but loopback, so that no answer can lead anybody elsewhere.

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/WebClient.h"
#include "TransferOptions.h"
#include "fuzz.h"
#include "host/host.h"

#include <arpa/inet.h>
#include <atomic>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <net/if.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>

using namespace AnalyticsSDK;

namespace {

// Flags in the input's first byte.
enum : uint8_t
{
    queued = 1,
    post = 2,
    in_two_pieces = 4,
    then_reset = 8,
    keep_open = 16 // the client must end by what it was told, not by the connection's end
};

class Server
{
public:
    Server() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in any = {};
        any.sin_family = AF_INET;
        socklen_t size = sizeof any;
        fuzz::require("a listening socket",
                      bind(m_listener, reinterpret_cast<sockaddr*>(&any), size) == 0 && listen(m_listener, 128) == 0);
        getsockname(m_listener, reinterpret_cast<sockaddr*>(&any), &size);
        m_port = ntohs(any.sin_port);
        std::thread([this] { serve(); }).detach();
    }

    void answer(uint8_t flags, std::string text)
    {
        std::lock_guard hold(m_lock);
        m_flags = flags;
        m_answer = std::move(text);
    }
    int port() const { return m_port; }

private:
    void serve()
    {
        for (;;) {
            const int client = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (client >= 0)
                talk(client);
        }
    }

    static bool read_more(int client, std::string& text, int wait_ms)
    {
        char piece[4096];
        pollfd readable = {client, POLLIN, 0};
        const ssize_t count = poll(&readable, 1, wait_ms) > 0 ? recv(client, piece, sizeof piece, 0) : 0;
        text.append(piece, static_cast<size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }

    // The body of a post is one short field; it ends with this letter.
    static void read_request(int client)
    {
        std::string request;
        while (request.find("\r\n\r\n") == std::string::npos || (request[0] == 'P' && request.back() != 'Z')) {
            if (!read_more(client, request, 1000))
                return;
        }
    }

    void talk(int client)
    {
        read_request(client);
        std::unique_lock hold(m_lock);
        const std::string text = m_answer;
        const uint8_t flags = m_flags;
        hold.unlock();
        const size_t half = flags & in_two_pieces ? text.size() / 2 : 0;
        send(client, text.data(), half, MSG_NOSIGNAL);
        send(client, text.data() + half, text.size() - half, MSG_NOSIGNAL);
        if (flags & then_reset) {
            const linger hard = {1, 0};
            setsockopt(client, SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        } else {
            if (!(flags & keep_open))
                shutdown(client, SHUT_WR);
            std::string rest;
            while (read_more(client, rest, flags & keep_open ? 3 : 1000)) {
            }
        }
        close(client);
    }

    int m_listener, m_port;
    std::mutex m_lock;
    uint8_t m_flags = 0;
    std::string m_answer;
};

// Counts what is told of one transfer.
class Listener : public IProgressCallback
{
public:
    virtual ~Listener() = default;
    void OnDownloadComplete(const char*) override
    {
        kept = static_cast<size_t>(client->GetStream("id")->str().size());
        end();
    }
    void OnDownloadCancel(const char*) override { end(); }
    void OnDownloadError(const char*, long) override { end(); }
    void OnProxyAuthenticationError(const char*, long, const char*) override { end(); }
    void OnProgressUpdate(const char*, double, double, double) override {}

    void wait_for(int count)
    {
        std::unique_lock hold(lock);
        fuzz::require("the transfer ends",
                      changed.wait_for(hold, std::chrono::seconds(20), [&] { return ends >= count; }));
        fuzz::same("ends told", count, ends);
    }

    WebClient* client = nullptr;
    std::atomic<size_t> kept{0};

private:
    void end()
    {
        std::lock_guard hold(lock);
        ++ends;
        changed.notify_all();
    }
    std::mutex lock;
    std::condition_variable changed;
    int ends = 0;
};

struct World
{
    Server server;
    WebClient client;
    Listener listener;
    int queued = 0;
};
World* world;

// False where the system does not allow it.
bool leave_the_network()
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
        return false;
    ifreq loopback = {};
    strcpy(loopback.ifr_name, "lo");
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ioctl(any, SIOCGIFFLAGS, &loopback);
    loopback.ifr_flags |= IFF_UP;
    const bool up = ioctl(any, SIOCSIFFLAGS, &loopback) == 0;
    close(any);
    return up;
}

// Without a route the machine is offline, and queued transfers would be given up unheard.
void say_online()
{
    static host::source facts = host::system_facts();
    facts.reachability = [](std::uint32_t& flags) {
        flags = host::flag_reachable;
        return host::answer::found;
    };
    host::replace_facts(&facts);
}

// A new address each time: ports would run out while old connections linger.
std::string next_url()
{
    static uint32_t number = 0;
    const uint32_t n = ++number % 0xFFFFFF;
    return "http://127." + std::to_string(n >> 16) + '.' + std::to_string(n >> 8 & 255) + '.' +
           std::to_string((n & 255) | 1) + ':' + std::to_string(world->server.port()) + "/a";
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    if (!leave_the_network()) {
        fprintf(stderr, "fuzz: skipped: this system allows no network of its own\n");
        exit(0);
    }
    signal(SIGPIPE, SIG_IGN);
    say_online();
    TransferSettings::total_timeout_ms = 1000;
    TransferSettings::connect_timeout_ms = 500;
    world = new World; // never destroyed: the server's thread lives as long as the process
    world->listener.client = &world->client;
    fuzz::require("the client's thread", world->client.Init(false));
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    if (size == 0)
        return -1;
    const uint8_t flags = bytes[0];
    const std::string answer(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    world->server.answer(flags, answer);
    std::map<std::string, std::string> form = {{"data", "Z"}};
    const RequestType type = flags & post ? RequestTypePost : RequestTypeGet;
    const size_t most = answer.size() * 11; // ten redirects

    const std::string url = next_url();
    if (flags & queued) {
        world->listener.kept = 0;
        fuzz::require("queued", world->client.QueueRequest(url.c_str(), &world->listener, type, &form, "id"));
        world->listener.wait_for(++world->queued);
        fuzz::require("no more kept than was sent", world->listener.kept <= most);
    } else {
        std::ostringstream body;
        long status = -1;
        const bool done = world->client.ExecRequest(url.c_str(), &body, status, type, &form);
        fuzz::require("no more written than was sent", body.str().size() <= most);
        fuzz::require("success has a status below 400", !done || (flags & post) || (status >= 0 && status < 400));
    }
    return 0;
}
