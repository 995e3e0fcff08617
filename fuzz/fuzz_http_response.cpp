// A hostile server: whatever it answers, a request ends, tells so exactly once, and keeps no more than was sent.
//
// The answer is the input. Every connection that is opened, to wherever, becomes one end of a socket pair whose other
// end has answered beforehand: no thread, no port and no network is involved, so a run takes microseconds and no
// redirect can lead anybody elsewhere.

#include "AnalyticsSDK/IProgressCallback.h"
#include "AnalyticsSDK/WebClient.h"
#include "TransferSettings.h"
#include "fuzz.h"
#include "host/host.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <vector>

using namespace AnalyticsSDK;

namespace {

// Flags in the input's first byte.
enum : uint8_t
{
    queued = 1,
    post = 2,
    in_small_pieces = 4,
    then_gone = 8,  // the server closes at once: what the client sends goes nowhere
    keep_open = 16, // the client must end by what it was told, or by its time-out
};

struct Server
{
    uint8_t flags = 0;
    std::string answer;
    std::vector<int> ends; // the server's, of the connections of this run

    void close_all()
    {
        for (const int end : ends)
            close(end);
        ends.clear();
    }
} server;

} // namespace

extern "C" int connect(int client, const sockaddr*, socklen_t)
{
    int pair[2];
    const int flags = fcntl(client, F_GETFL);
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    if (!server.answer.empty())
        fuzz::require("the answer fits", write(pair[1], server.answer.data(), server.answer.size()) ==
                                             static_cast<ssize_t>(server.answer.size()));
    fcntl(pair[0], F_SETFL, flags & O_NONBLOCK);
    dup2(pair[0], client);
    close(pair[0]);
    if (server.flags & then_gone) {
        close(pair[1]);
        return 0;
    }
    if (!(server.flags & keep_open))
        shutdown(pair[1], SHUT_WR);
    server.ends.push_back(pair[1]);
    return 0;
}

extern "C" ssize_t recv(int from, void* buffer, size_t size, int flags)
{
    return syscall(SYS_recvfrom, from, buffer, server.flags & in_small_pieces ? std::min<size_t>(size, 7) : size, flags,
                   nullptr, nullptr);
}

// No name is looked up: only numeric addresses are known.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** found)
{
    addrinfo numbers = hints ? *hints : addrinfo{};
    numbers.ai_flags |= AI_NUMERICHOST;
    using Function = int(const char*, const char*, const addrinfo*, addrinfo**);
    static auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(name, service, &numbers, found);
}

namespace {

// Counts what is told of one transfer.
class Listener : public IProgressCallback
{
public:
    explicit Listener(WebClient& client) : m_client(client) {}
    virtual ~Listener() = default;
    void OnDownloadComplete(const char*) override
    {
        ++ends;
        kept = m_client.GetStream("id")->str().size();
    }
    void OnDownloadCancel(const char*) override { ++ends; }
    void OnDownloadError(const char*, long) override { ++ends; }
    void OnProxyAuthenticationError(const char*, long, const char*) override { ++ends; }
    void OnProgressUpdate(const char*, double, double, double) override {}

    int ends = 0;
    size_t kept = 0;

private:
    WebClient& m_client;
};

// Without a route the machine is offline, and queued transfers would be given up before they start.
void say_online()
{
    static host::source facts = host::system_facts();
    facts.reachability = [](std::uint32_t& flags) {
        flags = host::flag_reachable;
        return host::answer::found;
    };
    host::replace_facts(&facts);
}

constexpr const char* url = "http://127.0.0.1/a";

// The client was never started, so this thread may do its worker's turn.
void run_queued(RequestType type, std::map<std::string, std::string>& form, size_t most)
{
    static WebClient client;
    Listener listener(client);
    fuzz::require("queued", client.QueueRequest(url, &listener, type, &form, "id"));
    client.Process();
    fuzz::same("ends told", 1, listener.ends);
    fuzz::require("no more kept than was sent", listener.kept <= most);
}

void run_at_once(RequestType type, std::map<std::string, std::string>& form, size_t most)
{
    static WebClient client;
    std::ostringstream body;
    long status = -1;
    const bool done = client.ExecRequest(url, &body, status, type, &form);
    fuzz::require("no more written than was sent", body.str().size() <= most);
    fuzz::require("success has a status below 400", !done || type == RequestTypePost || (status >= 0 && status < 400));
}

} // namespace

int LLVMFuzzerInitialize(int*, char***)
{
    signal(SIGPIPE, SIG_IGN);
    say_online();
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    if (size == 0)
        return -1;
    server.flags = bytes[0];
    server.answer.assign(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    TransferSettings::total_timeout_ms = server.flags & keep_open ? 3 : 1000;
    std::map<std::string, std::string> form = {{"data", "text"}};
    const RequestType type = server.flags & post ? RequestTypePost : RequestTypeGet;
    const size_t most = server.answer.size() * 11; // ten redirects
    server.flags& queued ? run_queued(type, form, most) : run_at_once(type, form, most);
    server.close_all();
    return 0;
}
