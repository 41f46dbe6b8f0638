// The modules of faxtray-web that decide by themselves: addresses, sessions, limits, the cache and the
// worker. What they do together is in web/.
#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "web/login_limits.h"
#include "web/page_cache.h"
#include "web/sessions.h"
#include "web/web_address.h"
#include "web/worker.h"

namespace faxtray {

using namespace std::chrono_literals;

TEST(WebAddress, TakesPublicUrlsAsBrowsersWriteThem)
{
    const struct {
        const char *text, *origin, *path;
        bool secure;
    } rows[] = {
        {"https://fax.example", "https://fax.example", "/", true},
        {"https://Fax.Example:443/fax//desk/", "https://fax.example", "/fax/desk/", true},
        {"http://10.0.0.1:80/", "http://10.0.0.1", "/", false},
        {"https://fax.example:8443/a", "https://fax.example:8443", "/a/", true},
        {"fax.example", nullptr, nullptr, false},
        {"ftp://fax.example", nullptr, nullptr, false},
        {"https:///fax", nullptr, nullptr, false},
        {"http://:80", nullptr, nullptr, false},
        {"http://fax.example:80:80", nullptr, nullptr, false},
        {"https://u@fax.example", nullptr, nullptr, false},
        {"https://fax.example/a;b", nullptr, nullptr, false},
    };
    for (const auto &row : rows) {
        public_url_t url;
        ASSERT_EQ(parse_public_url(row.text, &url), row.origin != nullptr) << row.text;
        if (row.origin) {
            EXPECT_EQ(url.origin, row.origin) << row.text;
            EXPECT_EQ(url.base_path, row.path) << row.text;
            EXPECT_EQ(url.secure, row.secure) << row.text;
        }
    }
}

TEST(WebAddress, BelievesWhatATrustedProxyAppended)
{
    const struct {
        const char *peer, *forwarded, *client;
    } rows[] = {
        {"192.0.2.1", "198.51.100.1", "192.0.2.1"},
        {"10.0.0.1", "", "10.0.0.1"},
        {"10.0.0.1", "198.51.100.1, 192.0.2.1", "192.0.2.1"},
        {"10.0.0.1", "192.0.2.1,10.0.0.2 ", "192.0.2.1"},
        {"10.0.0.1", "10.0.0.2", "10.0.0.2"},
        {"10.0.0.1", "2001:db8::1", "2001:db8::1"},
        {"10.0.0.1", "192.0.2.1, unknown", "10.0.0.1"},
        {"10.0.0.1", ",", "10.0.0.1"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(client_address(row.peer, row.forwarded, {"10.0.0.1", "10.0.0.2"}), row.client)
            << row.forwarded;
}

TEST(WebAddress, FindsOneCookieAmongOthers)
{
    for (const char *header : {"s=1", "a=b; s=1", "as=2; s=1;b=c", " s=1 ;", "s=1; s=2", "s; s=1"})
        EXPECT_EQ(cookie_value(header, "s"), "1") << header;
    for (const char *header : {"", ";", "s", "as=1", "s =1", "S=1", "=1"})
        EXPECT_EQ(cookie_value(header, "s"), "") << header;
}

TEST(Sessions, EndAfterAnHourOfIdlenessAndTwelveOfUse)
{
    sessions all;
    const web_clock::time_point start{};
    web_session_t found;
    const auto lives = [&](const web_session_t &session, bool used, web_clock::duration at) {
        return all.find(session.id, used, start + at, &found);
    };
    const web_session_t idle = all.begin({"anna", "1"}, start), busy = all.begin({"anna", "1"}, start);
    EXPECT_NE(idle.id, busy.id);
    EXPECT_NE(busy.id, busy.token);
    EXPECT_TRUE(lives(idle, false, 59min));  // a page that only asks for news
    EXPECT_FALSE(lives(idle, false, 61min));
    EXPECT_FALSE(lives(idle, false, 0min)) << "an ended session has come back";
    for (auto at = 0min; at < 12h; at += 50min)
        EXPECT_TRUE(lives(busy, true, at)) << at.count();
    EXPECT_EQ(found.who.user, "anna");
    EXPECT_FALSE(lives(busy, true, 12h));
}

TEST(LoginLimits, ForgetAPairsFailuresOneByOne)
{
    login_limits limits;
    const web_clock::time_point start{};
    const auto begin = [&](const char *user, web_clock::duration at) {
        return limits.begin("a", user, start + at);
    };
    for (int n = 0; n < 10; n++)
        EXPECT_TRUE(begin("anna", n * 1min)) << n;
    EXPECT_FALSE(begin("AN na", 9min));  // the same to the server
    EXPECT_TRUE(begin("bert", 9min));
    EXPECT_TRUE(limits.begin("b", "anna", start));
    EXPECT_TRUE(begin("anna", 10min));  // the first is over
    EXPECT_FALSE(begin("anna", 10min));
    limits.succeeded("a", "anna", false);  // it was no failure
    EXPECT_TRUE(begin("anna", 10min));
    limits.succeeded("a", "anna", true);
    for (int n = 0; n < 10; n++)
        EXPECT_TRUE(begin("anna", 10min)) << n;
}

static cached_ptr bytes(size_t n)
{
    const auto made = std::make_shared<cached_t>();
    made->bytes.assign(n, 'x');
    return made;
}

TEST(PageCache, DropsWhatWasUsedLeastRecentlyAndAUsersPages)
{
    page_cache cache(100'000);
    for (const char *key : {"a", "b", "c"})
        cache.add("anna", key, bytes(24'000));
    EXPECT_TRUE(cache.find("anna", "a"));
    cache.add("bert", "a", bytes(24'000));
    cache.add("bert", "b", bytes(24'000));  // in the place of anna's b
    EXPECT_TRUE(cache.find("anna", "a"));
    EXPECT_FALSE(cache.find("anna", "b"));
    EXPECT_FALSE(cache.find("carl", "a"));
    cache.add("carl", "large", bytes(26'000));
    EXPECT_FALSE(cache.find("carl", "large"));
    cache.add("bert", "a", bytes(10));  // again
    EXPECT_LE(cache.bytes(), 100'000u);
    cache.forget("anna");
    cache.forget("ann");
    EXPECT_FALSE(cache.find("anna", "a"));
    EXPECT_TRUE(cache.find("bert", "a"));
    cache.forget("bert");
    EXPECT_EQ(cache.bytes(), 0u);
}

TEST(Worker, RunsOneJobAtATimeAndPassesOnWhatItThrows)
{
    worker desk;
    std::atomic<int> running = 0, most = 0, ran = 0;
    std::vector<std::future<bool>> callers;
    for (int n = 0; n < 50; n++)
        callers.push_back(std::async(std::launch::async, [&] {
            return desk.run([&] {
                most = std::max<int>(most, ++running);
                ran++;
                running--;
            });
        }));
    for (auto &caller : callers)
        EXPECT_TRUE(caller.get());
    EXPECT_EQ(ran, 50);
    EXPECT_EQ(most, 1);
    EXPECT_THROW(desk.run([] { throw std::runtime_error("x"); }), std::runtime_error);
}

}  // namespace faxtray
