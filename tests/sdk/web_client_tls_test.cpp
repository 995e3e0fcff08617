#include "support/child.h"
#include "support/ports.h"
#include "support/scratch.h"
#include "support/session.h"
#include "transfers.h"

#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using support::Certificate;
using support::CertificateAuthority;
using support::Child;
using support::HttpServer;
using support::HttpsServer;

class WebClientTls : public TransferTest
{
protected:
    void trust(const std::string& file)
    {
        trusted = file;
        client.SetCertificateFile(file.c_str());
    }
    void refuses(HttpServer& secure, const std::string& url, const char* why)
    {
        EXPECT_EQ("false 0", executed(url, RequestTypePost, &event)) << why;
        EXPECT_EQ("error 0", queued(url, RequestTypePost, &event)) << why;
        support::Session session(url, trusted);
        analytics_event_begin(session, "kept");
        analytics_event_end(session);
        const std::string kept = support::read_file(session.log());
        EXPECT_NE("", kept);
        EXPECT_EQ(ANALYTICS_SEND_FAILED, analytics_send(session, 1)) << why;
        EXPECT_EQ(kept, support::read_file(session.log())) << why;
        EXPECT_EQ(0u, secure.count()) << why;
    }

    std::string trusted;
    support::ScratchFolder folder;
    CertificateAuthority authority, stranger{"Somebody Else"};
};

TEST_F(WebClientTls, TakesARightCertificate)
{
    HttpsServer secure(authority.issue({"127.0.0.1", "localhost"}));
    trust(authority.file());
    for (const char* host : {"127.0.0.1", "localhost"}) {
        EXPECT_EQ("true 200", executed(secure.url("/", host), RequestTypePost, &event));
        EXPECT_EQ("complete", queued(secure.url("/", host), RequestTypePost, &event));
    }
    ASSERT_EQ(4u, secure.count());
    EXPECT_EQ(event, secure.requests().at(3).form);
    EXPECT_EQ("complete", queued(server.url())) << "and http needs none";
}

TEST_F(WebClientTls, SendsNothingToWhoeverCannotProveItself)
{
    trust(authority.file());
    const struct
    {
        const char* why;
        Certificate certificate;
    } cases[] = {
        {"wrong host", authority.issue({"localhost"})},
        {"unknown issuer", stranger.issue({"127.0.0.1"})},
        {"expired", authority.issue({"127.0.0.1"}, support::expired)},
        {"not yet valid", authority.issue({"127.0.0.1"}, support::not_yet_valid)},
        {"self-signed", authority.self_signed({"127.0.0.1"})},
    };
    for (const auto& rule : cases) {
        HttpsServer secure(rule.certificate);
        refuses(secure, secure.url(), rule.why);
    }
}

TEST_F(WebClientTls, SendsNothingWithoutAUsableFileOfAuthorities)
{
    HttpsServer secure(authority.issue({"127.0.0.1"}));
    const std::string whole = support::read_file(authority.file());
    const struct
    {
        const char* why;
        std::string content;
    } cases[] = {{"empty", ""},
                 {"truncated", whole.substr(0, whole.size() / 2)},
                 {"garbage", "no certificate at all\n"},
                 {"somebody else's", support::read_file(stranger.file())}};
    for (const auto& rule : cases) {
        support::write_file(folder.file("ca.pem"), rule.content);
        trust(folder.file("ca.pem"));
        refuses(secure, secure.url(), rule.why);
    }
    trust(folder.file("missing.pem"));
    refuses(secure, secure.url(), "missing");
    trust("");
    refuses(secure, secure.url(), "no cacert.pem beside this program");
}

TEST_F(WebClientTls, LooksForAuthoritiesBesideTheProgramByDefault)
{
    HttpsServer secure(authority.issue({"127.0.0.1"}));
    const std::string beside = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "cacert.pem";
    ASSERT_FALSE(std::filesystem::exists(beside));
    std::filesystem::copy_file(authority.file(), beside);
    const std::string answer = executed(secure.url(), RequestTypePost, &event);
    std::filesystem::remove(beside);
    EXPECT_EQ("true 200", answer);
}

TEST_F(WebClientTls, VerifiesWhereARedirectLeadsToo)
{
    HttpsServer liar(stranger.issue({"127.0.0.1"}));
    HttpsServer honest(authority.issue({"127.0.0.1"}), [&](const support::Request&) {
        return support::Reply{307, "", {{"Location", liar.url()}}};
    });
    trust(authority.file());
    EXPECT_EQ("false 307", executed(honest.url(), RequestTypePost, &event));
    EXPECT_EQ(0u, liar.count());
    server.answer([&](const support::Request&) { return support::Reply{307, "", {{"Location", liar.url()}}}; });
    EXPECT_EQ("false 307", executed(server.url(), RequestTypePost, &event)) << "from http, by the system's authorities";
    EXPECT_EQ(0u, liar.count());
}

/// OpenSSL's own server, for what a modern server library does not do any more.
class PlainTlsServer
{
public:
    PlainTlsServer(const Certificate& certificate, std::vector<std::string> more = {})
        : m_port(support::free_port()), m_child(command(certificate, std::move(more), m_port))
    {
        EXPECT_TRUE(m_child.wait_for_output("ACCEPT"));
    }
    std::string url() const { return "https://127.0.0.1:" + std::to_string(m_port) + "/"; }
    int port() const { return m_port; }
    Child& child() { return m_child; }

private:
    static std::vector<std::string> command(const Certificate& certificate, std::vector<std::string> more, int port)
    {
        // The server ends when its input does.
        std::vector<std::string> all{"sh",
                                     "-c",
                                     "sleep 600 | exec openssl s_server \"$@\"",
                                     "sh",
                                     "-accept",
                                     "127.0.0.1:" + std::to_string(port),
                                     "-cert",
                                     certificate.file,
                                     "-key",
                                     certificate.key_file};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    int m_port;
    Child m_child;
};

TEST_F(WebClientTls, SurvivesAServerThatDiesDuringAnUpload)
{
    PlainTlsServer dying(authority.issue({"127.0.0.1"}));
    trust(authority.file());
    event["data"] = std::string(50'000'000, 'x');
    signal(SIGPIPE, SIG_DFL); // as in a host that never thought of it; the test servers ignore it
    ASSERT_TRUE(queue(dying.url(), "upload", RequestTypePost, &event));
    EXPECT_TRUE(dying.child().wait_for_output("data=xxx"));
    dying.child().kill();
    EXPECT_EQ("error 0", ends.of("upload"));
    EXPECT_EQ("false 0", executed(dying.url(), RequestTypePost, &event));
    signal(SIGPIPE, SIG_IGN);
}

// Run anew with an OpenSSL configuration that allows what this machine's forbids: so that it is us who refuse.
TEST_F(WebClientTls, RefusesVersionsBelow12)
{
    if (!getenv("LAX_OPENSSL")) {
        support::write_file(folder.file("lax.cnf"), "openssl_conf = a\n[a]\nssl_conf = b\n[b]\nsystem_default = c\n"
                                                    "[c]\nMinProtocol = TLSv1\nCipherString = ALL:@SECLEVEL=0\n");
        const support::Ended ended =
            support::run({"/proc/self/exe", "--gtest_filter=WebClientTls.RefusesVersionsBelow12"},
                         {{"LAX_OPENSSL=1", "OPENSSL_CONF=" + folder.file("lax.cnf")}, "", ""});
        EXPECT_EQ(0, ended.status) << ended.output << ended.errors;
        return;
    }
    const Certificate certificate = authority.issue({"127.0.0.1"});
    trust(authority.file());
    for (const char* version : {"-tls1", "-tls1_1", "-tls1_2", "-tls1_3"}) {
        PlainTlsServer old(certificate, {version, "-www"});
        const support::Ended control =
            support::run({"openssl", "s_client", version, "-connect", "127.0.0.1:" + std::to_string(old.port())});
        EXPECT_EQ(0, control.status) << version << " itself is possible here: " << control.errors;
        const bool modern = version[5] >= '_' && version[6] >= '2';
        EXPECT_EQ(modern ? "true 200" : "false 0", executed(old.url())) << version;
    }
}

// No way out at all, by the system's own judgement: in a network namespace that has only a loopback device.
TEST(WebClientWithoutARoute, GivesUpWhatIsPendingButNotASynchronousRequest)
{
    if (!getenv("NO_ROUTE")) {
        if (support::run({"unshare", "-n", "true"}).status != 0)
            GTEST_SKIP() << "this machine allows no network namespaces";
        const support::Ended ended = support::run(
            {"unshare", "-n", "sh", "-c", "ip link set lo up && exec \"$0\" --gtest_filter=WebClientWithoutARoute.*",
             std::filesystem::read_symlink("/proc/self/exe")},
            {{"NO_ROUTE=1"}, "", ""});
        EXPECT_EQ(0, ended.status) << ended.output << ended.errors;
        return;
    }
    HttpServer server(200);
    support::RawServer silent(hold_open);
    Ends ends;
    WebClient client;
    client.Init(true);
    client.QueueRequest(silent.url().c_str(), &ends, RequestTypeGet, nullptr, "item");
    EXPECT_EQ("error -3", ends.of("item"));
    long status = 0;
    EXPECT_TRUE(client.ExecRequest(server.url().c_str(), nullptr, status, RequestTypeGet, nullptr));
    client.Close();
}

} // namespace
