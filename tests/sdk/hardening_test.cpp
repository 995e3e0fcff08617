// What the library does for a host's safety beyond its own work: nothing is inherited by programs that the host starts,
// nothing secret stays behind in memory.
// Labels: network

#include <algorithm>
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "AnalyticsSDK/CredentialStore.h"
#include "CurlHandles.h"
#include "lumo/tova/tova-web.h"
#include "support/raw_server.h"
#include "support/session.h"

using namespace AnalyticsSDK;

namespace {

std::atomic<int> unmarked_connections{0};

} // namespace

// In place of the system library's: a program that starts after a connection is made and before it is marked
// inherits it, which cannot be seen reliably from outside.
extern "C" int socket(int family, int type, int protocol) noexcept
{
    unmarked_connections += (type & SOCK_STREAM) && !(type & SOCK_CLOEXEC);
    return static_cast<int>(syscall(SYS_socket, family, type, protocol));
}

namespace {

// The files behind the descriptors that a program would inherit. Standard ones do not count, nor do pairs of
// local sockets, by which libcurl wakes itself: they lead nowhere.
std::vector<std::string> inheritable()
{
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        sockaddr_storage address;
        socklen_t size = sizeof address;
        const bool local =
            getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 && address.ss_family == AF_UNIX;
        if (descriptor > 2 && !local && !(fcntl(descriptor, F_GETFD) & FD_CLOEXEC))
            found.push_back(std::filesystem::read_symlink(entry.path()));
    }
    return found;
}

// How often a text stands in this process's writable memory. It is given with every bit turned over, so that the search
// does not find its own argument.
int times_in_memory(std::string_view turned_over)
{
    std::ifstream maps("/proc/self/maps");
    std::ifstream memory("/proc/self/mem", std::ios::binary);
    memory.rdbuf()->pubsetbuf(nullptr, 0);
    static char piece[1 << 16];
    int times = 0;
    for (std::string line; std::getline(maps, line);) {
        unsigned long from, to;
        char rights[5];
        if (sscanf(line.c_str(), "%lx-%lx %4s", &from, &to, rights) != 3 || rights[1] != 'w')
            continue;
        // Left out: a sanitizer's own records, and the stack, where registers are saved that have held the text.
        if (to - from > 1ul << 30 || line.find("[stack]") != line.npos)
            continue;
        for (; from + turned_over.size() <= to; from += sizeof piece - turned_over.size()) {
            memset(piece, 0, sizeof piece); // it is searched as well
            memory.clear();
            memory.seekg(static_cast<std::streamoff>(from))
                .read(piece, static_cast<std::streamsize>(std::min(sizeof piece, to - from)));
            const auto end = piece + memory.gcount();
            const auto same = [](char have, char wanted) { return have == static_cast<char>(~wanted); };
            for (auto at = piece; (at = std::search(at, end, turned_over.begin(), turned_over.end(), same)) != end;
                 ++at)
                ++times;
        }
    }
    memset(piece, 0, sizeof piece);
    return times;
}

// The password with every bit turned over; only with_password makes the password itself, for a moment.
constexpr std::string_view turned_over_password =
    "\x9c\x8b\x92\xa5\xce\xc6\xb7\x8d\x98\xa8\x8f\x9e\x8c\xcd\xc9\x91\x9a\x8a\x96\x93\x87\xa6\xad\xb1";

// The part to search for: the allocator writes its own data over the first 16 bytes of what is freed.
constexpr std::string_view turned_over_end = turned_over_password.substr(16);

template <typename Use>
void with_password(Use use)
{
    char password[turned_over_password.size() + 1] = {};
    for (size_t i = 0; i < turned_over_password.size(); ++i)
        password[i] = static_cast<char>(~turned_over_password[i]);
    use(password);
    explicit_bzero(password, sizeof password);
}

} // namespace

TEST(Hardening, ProgramsThatTheHostStartsInheritNothing)
{
    const auto from_outside = inheritable();
    unmarked_connections = 0;
    auto server = std::make_unique<support::RawServer>([](support::RawServer::Connection& client) { client.hang(); });
    support::Session session(server->url());
    session.log_one();
    std::thread upload([&] { EXPECT_EQ(analytics_send(session, 1), ANALYTICS_SEND_FAILED); });
    std::thread request([&, url = server->url()] {
        tova_http http;
        tova_http_response response;
        tova_http_init(&http);
        tova_http_response_create(&response);
        tova_http_option_string_set(&http, tova_http_url, url.c_str());
        EXPECT_EQ(tova_http_request(&http, &response, tova_http_get), 0);
        tova_http_close(&http);
    });
    CurlEasyHandle download;
    download.OpenFileStream(session.folder.file("body").c_str());
    EXPECT_TRUE(server->wait_for_connections(2));
    EXPECT_EQ(inheritable(), from_outside);
    EXPECT_EQ(unmarked_connections, 0) << "marked only after they were made";
    server.reset();
    upload.join();
    request.join();
}

TEST(Hardening, NoPasswordStaysBehindInMemory)
{
    const auto add = [](CCredentialStore& store, const char* password) {
        EXPECT_TRUE(store.AddCredentials("proxy:1", scoped_ptr<CUserCredentials>(new CUserCredentials{"", password})));
    };
    {
        CCredentialStore store, short_lived;
        with_password([&](const char* password) { add(store, password), add(short_lived, password); });
        EXPECT_GE(times_in_memory(turned_over_end), 2) << "the search itself";
        CUserCredentials copy, other;
        EXPECT_TRUE(store.CopyUserCredentials("proxy:1", copy));
        other = copy;
        other = CUserCredentials();
        add(store, "another"); // in its place
    }
    EXPECT_EQ(times_in_memory(turned_over_end), 0);

    tova_http http;
    tova_http_init(&http);
    const auto set = [&](const char* password) {
        tova_http_option_string_set(&http, tova_http_proxy_password, password);
    };
    with_password(set);
    EXPECT_EQ(times_in_memory(turned_over_end), 1);
    set("another");
    EXPECT_EQ(times_in_memory(turned_over_end), 0);
    with_password(set);
    tova_http_close(&http);
    EXPECT_EQ(times_in_memory(turned_over_end), 0);
}
