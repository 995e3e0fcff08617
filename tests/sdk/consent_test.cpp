// A user's consent: what reaches the disk and the system while it is missing, and once it has been withdrawn.
// Labels: threads, network
#include "sdk/transfers.h"
#include "support/raw_server.h"
#include "support/session.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

using support::HttpServer;
using support::RawServer;
using support::read_file;
using support::Session;
using support::wait_until;

namespace {

/// What libcurl hands to the system for a server's port, and how much of that while CurlHandles must have shut the
/// sockets.
struct Wire
{
    std::atomic<int> port{0};
    std::atomic<bool> forbidden{false};
    std::atomic<long> bytes{0}, late{0};

    void note(int socket, bool wasForbidden, ssize_t sent)
    {
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        if (sent <= 0 || getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0 ||
            ntohs(peer.sin_port) != port)
            return;
        bytes += sent;
        late += wasForbidden ? sent : 0;
    }
} wire;

struct ConsentTest : testing::Test
{
    transfers::Network network;

    ConsentTest() { watch(0); }

    static void watch(int port)
    {
        wire.port = port;
        wire.forbidden = false;
        wire.bytes = wire.late = 0;
    }
    static void revoke(analytics_session* session)
    {
        EXPECT_EQ(analytics_consent_set(session, ANALYTICS_CONSENT_REVOKED), 0u);
        wire.forbidden = true;
    }
    static void set(analytics_session* session, const char* key, const char* value)
    {
        EXPECT_EQ(analytics_option_set(session, key, value), 0u) << key;
    }
    /// The names of the files that a session left, in no order.
    static std::string files(const Session& session)
    {
        std::string names;
        for (const auto& entry : std::filesystem::directory_iterator(session.folder.path()))
            names += entry.path().filename().string() + " ";
        return names;
    }
};

} // namespace

// ThreadSanitizer takes a send and its receipt for a synchronisation, which it would not see through this.
#ifdef __SANITIZE_THREAD__
constexpr bool seesTheWire = false;
#else
constexpr bool seesTheWire = true;
extern "C" ssize_t send(int socket, const void* data, size_t size, int flags)
{
    const bool wasForbidden = wire.forbidden;
    const ssize_t sent = syscall(SYS_sendto, socket, data, size, flags, nullptr, 0);
    if (wire.port != 0)
        wire.note(socket, wasForbidden, sent);
    return sent;
}
#endif

TEST_F(ConsentTest, RevokedAtAnyMomentLeavesNothing)
{
    HttpServer server;
    std::minstd_rand random(16);
    for (int round = 0; round < 200; ++round) {
        Session session(server.url());
        const std::string oldId = read_file(session.folder.file("id"));
        watch(server.port());
        set(session, "delivery", round % 2 ? "batches" : "whole");
        set(session, "batch_bytes", "4096");
        set(session, "interval_ms", "10");
        std::atomic<bool> revoked{false};
        std::thread host([&] {
            for (int turn = round; !revoked; ++turn) {
                for (int number = 0; number < 60; ++number)
                    session.log_one();
                turn % 3 == 0 ? analytics_send_for(session, 1000) : analytics_send(session, turn % 3 == 1);
            }
            session.log_one();
            EXPECT_EQ(analytics_send(session, round % 4 < 2), 207u);
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000)); // any moment
        revoke(session);
        EXPECT_EQ(files(session), "") << "in round " << round;
        revoked = true;
        host.join();
        EXPECT_EQ(files(session), "") << "in round " << round;
        wire.forbidden = false;
        EXPECT_EQ(analytics_consent_set(session, ANALYTICS_CONSENT_GIVEN), 0u);
        session.log_one("anew");
        EXPECT_EQ(analytics_send(session, 1), 0u);
        const auto form = server.requests().back().form;
        EXPECT_EQ(form.at("g"), read_file(session.folder.file("id")));
        EXPECT_NE(form.at("g"), oldId);
        EXPECT_EQ(wire.late, 0) << "in round " << round;
        EXPECT_EQ(wire.bytes > 0, seesTheWire);
    }
}

TEST_F(ConsentTest, RevokedInTheMiddleOfAnUploadEndsIt)
{
    std::atomic<bool> go{false}, begun{false};
    std::atomic<size_t> received{0};
    RawServer server([&](RawServer::Connection& peer) {
        received += peer.read_some().size();
        begun = true;
        wait_until([&] { return go.load() || peer.is_server_stopping(); });
        for (std::string piece = "x"; !piece.empty(); received += piece.size())
            piece = peer.read_some();
    });
    constexpr size_t most = 8 << 20; // three times as many in the body: more than the system keeps for both ends
    for (const char* mode : {"whole", "batches"})
        for (const char* way : {"waits", "queues", "worker"}) {
            SCOPED_TRACE(std::string(mode) + ", " + way);
            Session session(server.url());
            support::write_file(session.log(), std::string(most, '"') + "\n");
            watch(server.port());
            set(session, "batch_bytes", "16777216");
            set(session, "delivery", mode);
            go = begun = false;
            received = 0;
            std::thread host;
            if (*way == 'w' && way[1] == 'a')
                host = std::thread([&] { EXPECT_EQ(analytics_send(session, 1), 207u); });
            else if (*way == 'q')
                EXPECT_EQ(analytics_send(session, 0), 0u);
            else
                set(session, "interval_ms", "10");
            EXPECT_TRUE(wait_until([&] { return begun.load(); }));
            revoke(session);
            EXPECT_EQ(files(session), "");
            if (host.joinable())
                host.join();
            go = true;
            session.close();
            EXPECT_LT(received, 3 * most);
            EXPECT_EQ(wire.late, 0);
        }
}

TEST_F(ConsentTest, RevokedByAnObserverStopsTheOtherUploadsToo)
{
    std::atomic<int> connections{0};
    RawServer server([&](RawServer::Connection& peer) {
        const bool first = ++connections == 1;
        if (first) {
            peer.read_request();
            wait_until([&] { return wire.bytes > 200'000 || (!seesTheWire && connections > 1); });
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nsome");
        }
        while (wire.forbidden || connections < 3)
            if (peer.read_some(first ? 65536 : 1024).empty())
                return;
    });
    Session session(server.url());
    watch(server.port());
    const auto observer = [](void* context, uint32_t, double) { revoke(*static_cast<Session*>(context)); };
    EXPECT_EQ(analytics_observer_add(session, "progress", observer, &session), 0u);
    session.log_one();
    EXPECT_EQ(analytics_send(session, 0), 0u);
    EXPECT_TRUE(wait_until([&] { return connections == 1; }));
    support::write_file(session.log(), std::string(8 << 20, '"') + "\n");
    EXPECT_EQ(analytics_send(session, 0), 0u);
    EXPECT_TRUE(wait_until([&] { return wire.forbidden.load(); }));
    EXPECT_EQ(files(session), "");
    session.close();
    EXPECT_EQ(wire.late, 0);
}

TEST_F(ConsentTest, UnknownHoldsEverythingBack)
{
    for (const char* mode : {"whole", "batches"}) {
        SCOPED_TRACE(mode);
        HttpServer server;
        Session session(server.url());
        EXPECT_EQ(analytics_consent_set(session, ANALYTICS_CONSENT_UNKNOWN), 0u);
        set(session, "delivery", mode);
        // Sealed in 2020, which is more than 30 days ago. Before the first cycle, which would delete a file that is
        // empty still.
        const std::string old = session.log() + ".016f6d9de8000123456789abcdef0123.0.";
        support::write_file(old + "batch", "old\n");
        set(session, "send_at_start", "yes");
        set(session, "interval_ms", "10");
        session.log_one();
        for (const uint32_t answer :
             {analytics_send(session, 0), analytics_send(session, 1), analytics_send_for(session, 50)})
            EXPECT_EQ(answer, 207u);
        if (*mode == 'b') {
            EXPECT_TRUE(wait_until([&] { return read_file(old + "dropped") == "1\n"; }));
        }
        EXPECT_EQ(server.count(), 0u);
        set(session, "consent", "given");
        EXPECT_TRUE(server.wait_for(1)) << "the start comes with the consent";
        EXPECT_TRUE(wait_until([&] { return !std::filesystem::exists(session.log()); }));
    }
}

TEST_F(ConsentTest, RevokedKeepsWhatIsNotTheSessions)
{
    support::ScratchFolder folder;
    analytics_config config = {};
    support::set_field(config.event_log_file, folder.file("log"));
    support::set_field(config.pid_file, folder.file("id"));
    support::set_field(config.unique_id, "the host's");
    analytics_session* session = analytics_initialize(&config);
    const std::string name = folder.file("log.016f6d9de8000123456789abcdef0123.0");
    for (const char* gone : {".batch", ".dropped", ".tmp"})
        support::write_file(name + gone, "1\n");
    support::write_file(folder.file("log.open"), "1\n");
    support::write_file(name + ".batch2", "");
    support::write_file(folder.file("logs"), "");
    EXPECT_EQ(analytics_consent_set(session, static_cast<analytics_consent>(3)), 501u);
    EXPECT_EQ(analytics_consent_set(nullptr, ANALYTICS_CONSENT_GIVEN), 100u);
    EXPECT_TRUE(std::filesystem::exists(folder.file("id")));
    EXPECT_EQ(analytics_option_set(session, "consent", "revoked"), 0u);
    const auto entries = std::filesystem::directory_iterator(folder.path());
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 2);
    EXPECT_EQ(analytics_option_set(session, "consent", "unknown"), 0u);
    EXPECT_EQ(read_file(folder.file("id")), "the host's");
    std::filesystem::remove(folder.file("id"));
    std::filesystem::create_directory(folder.file("id")); // no id file, and none of ours to delete
    revoke(session);
    EXPECT_TRUE(std::filesystem::exists(folder.file("id")));
    analytics_shutdown(session);
}
