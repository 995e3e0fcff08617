// Requests through a real proxy that asks for a login.
#include "lumo/tova/tova-web.h"
#include "support/http_server.h"
#include "support/proxies.h"

#include <gtest/gtest.h>

namespace {

struct HttpProxy : testing::Test
{
    support::HttpServer server;
    tova_http h;
    tova_http_response r;

    HttpProxy()
    {
        tova_http_init(&h);
        tova_http_response_create(&r);
        tova_http_option_string_set(&h, tova_http_url, server.url().c_str());
    }
    ~HttpProxy() override { tova_http_close(&h); }
    void go_through(const support::ProxyProgram& proxy, const char* user, const char* password)
    {
        tova_http_option_string_set(&h, tova_http_proxy, proxy.text().c_str());
        tova_http_option_string_set(&h, tova_http_proxy_user, user);
        tova_http_option_string_set(&h, tova_http_proxy_password, password);
    }
};

TEST_F(HttpProxy, LetsARequestWithItsLoginThrough)
{
    support::Tinyproxy proxy({"alice", "secret"});
    go_through(proxy, "alice", "secret");
    EXPECT_EQ(1, tova_http_request(&h, &r, tova_http_get)) << r._error;
    EXPECT_EQ(200, r.status);
    tova_http_data_set(&h, "data", 4);
    EXPECT_EQ(1, tova_http_request(&h, &r, tova_http_post)) << r._error;
    const auto requests = server.requests();
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ("data", requests[1].body);
    EXPECT_TRUE(requests[0].has_header("via"));
    EXPECT_FALSE(requests[0].has_header("proxy-authorization"));
}

TEST_F(HttpProxy, RefusesARequestWithoutALoginAndSendsNoEmptyOne)
{
    support::Tinyproxy proxy({"alice", "secret"});
    go_through(proxy, "", "unused");
    EXPECT_EQ(0, tova_http_request(&h, &r, tova_http_get));
    EXPECT_EQ(407, r.status);
    go_through(proxy, "alice", "wrong");
    EXPECT_EQ(0, tova_http_request(&h, &r, tova_http_get));
    EXPECT_EQ(401, r.status);
    EXPECT_EQ(0u, server.count());
    tova_http_option_string_set(&h, tova_http_proxy, ""); // set aside, it is asked no more
    EXPECT_EQ(1, tova_http_request(&h, &r, tova_http_get));
    EXPECT_FALSE(server.requests().at(0).has_header("via"));
}

TEST_F(HttpProxy, TakesALoginAsTyped)
{
    support::Squid proxy({"al@ice", "p:w@rd %zz+/\xC3\xA9"});
    go_through(proxy, "al@ice", "p:w@rd %zz+/\xC3\xA9");
    EXPECT_EQ(1, tova_http_request(&h, &r, tova_http_get)) << r._error;
    EXPECT_EQ(1u, server.count());
}

TEST_F(HttpProxy, MayTakeALoginThatLooksEncodedOnlyTheSecondTime)
{
    support::Squid proxy({"alice", "p%41ss"});
    go_through(proxy, "alice", "p%41ss");
    tova_http_request(&h, &r, tova_http_get); // some libcurls fail here: docs/limits.md
    EXPECT_EQ(1, tova_http_request(&h, &r, tova_http_get)) << r.status;
}

} // namespace
