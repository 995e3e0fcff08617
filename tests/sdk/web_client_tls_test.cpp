// Labels: network
#include "support/child.h"
#include "support/ports.h"
#include "support/scratch.h"
#include "support/session.h"
#include "transfers.h"

#include <cstdlib>

namespace {

using namespace AnalyticsSDK;
using namespace transfers;
using namespace support;

class WebClientTls : public TransferTest
{
protected:
    WebClientTls() { client.SetCertificateFile(authority.file().c_str()); }

    ScratchFolder folder;
    CertificateAuthority authority, stranger{"Somebody Else"};
};

TEST_F(WebClientTls, TakesARightCertificate)
{
    HttpsServer secure(authority.issue({"127.0.0.1", "localhost"}));
    for (const char* host : {"127.0.0.1", "localhost"}) {
        EXPECT_EQ("true 200", executed(secure.url("/", host), RequestTypePost, &event));
        EXPECT_EQ("complete", queued(secure.url("/", host), RequestTypePost, &event));
        EXPECT_EQ(event, secure.requests().back().form);
    }
}

TEST_F(WebClientTls, SendsNothingToWhoeverCannotProveItself)
{
    const Certificate right = authority.issue({"127.0.0.1"});
    const std::string whole = read_file(authority.file());
    const struct
    {
        const char* why;
        Certificate certificate;
        std::string authorities;
    } cases[] = {
        {"wrong host", authority.issue({"localhost"}), whole},
        {"unknown issuer", stranger.issue({"127.0.0.1"}), whole},
        {"expired", authority.issue({"127.0.0.1"}, expired), whole},
        {"not yet valid", authority.issue({"127.0.0.1"}, not_yet_valid), whole},
        {"self-signed", authority.self_signed({"127.0.0.1"}), whole},
        {"authorities: empty", right, ""},
        {"authorities: truncated", right, whole.substr(0, whole.size() / 2)},
        {"authorities: garbage", right, "no certificate at all\n"},
        {"authorities: somebody else's", right, read_file(stranger.file())},
        {"authorities: no file", right, "missing"},
        {"authorities: no cacert.pem beside this program", right, "default"},
    };
    for (const auto& rule : cases) {
        SCOPED_TRACE(rule.why);
        HttpsServer secure(rule.certificate);
        const bool beside = rule.authorities == "default";
        const std::string file = beside ? "" : folder.file(rule.authorities == "missing" ? "missing" : "authorities");
        write_file(folder.file("authorities"), rule.authorities);
        client.SetCertificateFile(file.c_str());
        EXPECT_EQ("false 0", executed(secure.url(), RequestTypePost, &event));
        EXPECT_EQ("error 0", queued(secure.url(), RequestTypePost, &event));
        Session session(secure.url(), file);
        session.log_one();
        const std::string kept = read_file(session.log());
        EXPECT_EQ(ANALYTICS_SEND_FAILED, analytics_send(session, 1));
        EXPECT_EQ(kept, read_file(session.log()));
        EXPECT_EQ(0u, secure.count());
    }
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
    HttpsServer honest(authority.issue({"127.0.0.1"}));
    for (HttpServer* from : {&server, static_cast<HttpServer*>(&honest)}) { // from http: by the system's authorities
        from->answer([&](const Request&) { return Reply{307, "", {{"Location", liar.url()}}}; });
        EXPECT_EQ("false 307", executed(from->url(), RequestTypePost, &event));
    }
    EXPECT_EQ(0u, liar.count());
}

/// OpenSSL's own server, for what a modern server library does not do any more. It ends when its input does.
struct PlainTlsServer
{
    explicit PlainTlsServer(const Certificate& certificate, const std::string& options = "")
        : child({"sh", "-c",
                 "sleep 600 | exec openssl s_server -accept " + address + " -cert " + certificate.file + " -key " +
                     certificate.key_file + " " + options})
    {
        EXPECT_TRUE(child.wait_for_output("ACCEPT"));
    }

    const std::string address = "127.0.0.1:" + std::to_string(free_port());
    const std::string url = "https://" + address + "/";
    Child child;
};

// Run anew with an OpenSSL configuration that allows what this machine's forbids: so that it is us who refuse.
TEST_F(WebClientTls, RefusesVersionsBelow12)
{
    if (!getenv("LAX_OPENSSL")) {
        write_file(folder.file("lax.cnf"), "openssl_conf = a\n[a]\nssl_conf = b\n[b]\nsystem_default = c\n"
                                           "[c]\nMinProtocol = TLSv1\nCipherString = ALL:@SECLEVEL=0\n");
        const Ended ended =
            run({std::filesystem::read_symlink("/proc/self/exe"), "--gtest_filter=WebClientTls.RefusesVersionsBelow12"},
                {{"LAX_OPENSSL=1", "OPENSSL_CONF=" + folder.file("lax.cnf")}, "", ""});
        EXPECT_EQ(0, ended.status) << ended.output << ended.errors;
        return;
    }
    const Certificate certificate = authority.issue({"127.0.0.1"});
    for (const char* version : {"-tls1", "-tls1_1", "-tls1_2", "-tls1_3"}) {
        PlainTlsServer old(certificate, version + std::string(" -www"));
        const Ended control = run({"openssl", "s_client", version, "-connect", old.address});
        EXPECT_EQ(0, control.status) << version << " itself is possible here: " << control.errors;
        const bool modern = version[5] >= '_' && version[6] >= '2';
        EXPECT_EQ(modern ? "true 200" : "false 0", executed(old.url)) << version;
    }
}

} // namespace
