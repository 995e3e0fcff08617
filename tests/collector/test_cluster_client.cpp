// One node over HTTP: what is sent to it, and why there is no answer.
#include "store/clickhouse/client.h"
#include "support/certificates.h"
#include "support/http_server.h"
#include "support/ports.h"

#include <gtest/gtest.h>
#include <thread>

using namespace store::clickhouse;
using Kind = Trouble::Kind;

namespace {

Node at(int port)
{
    return {"127.0.0.1", static_cast<uint16_t>(port)};
}

} // namespace

TEST(ClusterClient, SendsLoginByHeaderAndLimitsWithEachQuestion)
{
    support::HttpServer server([](const support::Request&) { return support::Reply{200, "4"}; });
    Layout layout;
    layout.user = "me";
    layout.password = "word";
    layout.database = "events";
    Client client(at(server.port()), layout);
    EXPECT_EQ(*client.ask("SELECT 4", {std::chrono::milliseconds(1500), 1000}), "4");
    EXPECT_TRUE(client.insert("t", "a, b", std::string_view("\0\1", 2)));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/?database=events&wait_end_of_query=1&max_execution_time=2&max_memory_usage=1000");
    EXPECT_EQ(requests[0].body, "SELECT 4");
    EXPECT_EQ(requests[0].header("x-clickhouse-user") + requests[0].header("x-clickhouse-key"), "meword");
    EXPECT_EQ(requests[1].target.rfind("/?database=events&insert_deduplicate=0&query=INSERT%20INTO%20t%20%28a%2C", 0),
              0u);
    EXPECT_EQ(requests[1].body, std::string("\0\1", 2));
    EXPECT_EQ(requests[0].client_port, requests[1].client_port); // one connection
}

TEST(ClusterClient, TellsWhyThereIsNoAnswer)
{
    support::CertificateAuthority ours("Ours"), theirs("Theirs");
    const support::Certificate certificate = ours.issue({"127.0.0.1"}), other_host = ours.issue({"localhost"});
    const auto says = [](int status, const std::string& body) {
        return [=](const support::Request&) { return support::Reply{status, body}; };
    };
    support::HttpServer refusing(says(500, "Code: 60. DB::Exception: none")), odd(says(404, "no")),
        large(says(200, std::string(2000, 'x'))), slow([](const support::Request&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            return support::Reply{};
        });
    support::HttpsServer safe(certificate, says(200, "1")), elsewhere(other_host, says(200, "1"));
    const std::atomic<bool> stop{true};
    Bounds brief{std::chrono::milliseconds(50)}, stopped, small;
    stopped.stop = &stop;
    small.answer = 1000;
    const struct
    {
        const char* what;
        int port;
        std::string ca;
        Bounds bounds;
        std::optional<Kind> kind; ///< none: an answer
        int code;
    } rows[] = {
        {"an error by number", refusing.port(), "", {}, Kind::code, 60},
        {"something else there", odd.port(), "", {}, Kind::refused, 0},
        {"too much", large.port(), "", small, Kind::refused, 0},
        {"too slow", slow.port(), "", brief, Kind::late, 0},
        {"wanted no more", slow.port(), "", stopped, Kind::late, 0},
        {"nobody there", support::free_port(), "", {}, Kind::unreachable, 0},
        {"a certificate of ours", safe.port(), ours.file(), {}, std::nullopt, 0},
        {"another authority's", safe.port(), theirs.file(), {}, Kind::refused, 0},
        {"another host's", elsewhere.port(), ours.file(), {}, Kind::refused, 0},
    };
    for (const auto& row : rows) {
        Layout layout;
        layout.ca_file = row.ca;
        auto answer = Client(at(row.port), layout).ask("SELECT 1", row.bounds);
        EXPECT_EQ(bool(answer), !row.kind) << row.what;
        if (row.kind && !answer) {
            EXPECT_EQ(answer.fault().kind, *row.kind) << row.what << ": " << answer.fault().text;
            EXPECT_EQ(answer.fault().code, row.code) << row.what;
        }
    }
}
