// Clients that are old, odd, broken or hostile.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <csignal>

#include "requests.h"
#include "support/daemon.h"
#include "support/wait_for.h"

#if defined(__SANITIZE_ADDRESS__)
static constexpr bool memory_is_checked = true;  // and freed memory kept aside
#elif defined(__has_feature)
static constexpr bool memory_is_checked = __has_feature(address_sanitizer);
#else
static constexpr bool memory_is_checked = false;
#endif

namespace faxtray {

TEST(Wire, TakesNamesOfAnyLength)
{
    site s;
    running_daemon daemon(s);
    reply_t reply = call(2, identity(std::string(65536, 'x'), std::string(65536, 'y')) + whole_index);
    EXPECT_EQ(reply.code(), 11);
    EXPECT_LT(reply.message().size(), 2048u);
    EXPECT_EQ(call(13, bea + text(std::string(65536, 'a')) + whole_index).code(), 12);
}

TEST(Wire, TruncatedArgumentsAreGarbageAndLeakNothing)
{
    site s;
    running_daemon daemon(s);
    connection c;
    const std::string index = bea + whole_index;
    for (size_t n = 0; n < index.size(); n++)
        EXPECT_EQ(c.call(2, index.substr(0, n)).accept_stat, 4) << n;
    for (uint32_t claim : {0xFFFFFFFFu, 0x7FFFFFFFu, 16u * 1024 * 1024 + 1, 16u * 1024 * 1024})
        EXPECT_EQ(c.call(2, word(1) + word(claim) + "few bytes...").accept_stat, 4) << claim;

    std::string half_a_request = word(1) + text(std::string(60'000, 'x')) + text(std::string(60'000, 'y'));
    c.call(2, half_a_request);
    long before = daemon.resident_kb();
    for (int n = 0; n < 500; n++)
        EXPECT_EQ(c.call(2, half_a_request).accept_stat, 4);
    EXPECT_TRUE(memory_is_checked || daemon.resident_kb() - before < 10'000);
}

TEST(Wire, OutlivesClientsThatHangUp)
{
    site s;
    s.add_fax(s.inbox("alsmith"), "big", 1'000'000);
    running_daemon daemon(s);
    std::string read = call_bytes(5, part_of(al, list(al)[0], 262144, 0));

    for (size_t n : {1u, 4u, 20u, 60u}) {  // amid mark, head and arguments
        connection c;
        c.send(read.substr(0, n));
        c.close();
        EXPECT_EQ(call(0, "").accept_stat, 0) << n;
    }
    const struct linger reset = {1, 0};  // so that what the daemon writes next meets nobody
    for (int n = 0; n < 20; n++) {       // amid replies
        connection c;
        for (int requests = 0; requests < 8; requests++)
            c.send(read);
        setsockopt(c.fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    EXPECT_EQ(list(al).size(), 1u);
}

// Asks for 25 MB of replies, more than any buffer on the way holds, and reads none.
static void stall(const connection &c)
{
    std::string read = call_bytes(5, part_of(al, list(al)[0], 262144, 0)), reads;
    for (int n = 0; n < 100; n++)
        reads += read;
    ASSERT_TRUE(c.send(reads));
}

TEST(Wire, ReaderThatNeverReadsHoldsUpOthersBriefly)
{
    site s;
    s.add_fax(s.inbox("alsmith"), "big", 1'000'000);
    running_daemon daemon(s);
    connection stalled;
    stall(stalled);
    for (int n = 0; n < 10; n++)
        ASSERT_EQ(list(al).size(), 1u);  // fails after PATIENCE seconds
}

// Signals a daemon that is held up amid a reply: one signal waits for the reply's end, two do not.
// Nobody reads the replies of one client, and another has sent half a request.
TEST(Wire, SignalsEndTheDaemonWhateverClientsDo)
{
    site s;
    s.add_fax(s.inbox("alsmith"), "big", 1'000'000);
    running_daemon daemon(s);
    connection stalled, half;
    stall(stalled);
    ASSERT_TRUE(half.send(call_bytes(9, al).substr(0, 10)));
    connection other;  // by its reply, the daemon has met both
    EXPECT_EQ(other.call(9, al).at(1), 1u);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(daemon.stop(SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5))
        << "a second is given to readers";
    EXPECT_NE(daemon.log().find("Shutting down"), std::string::npos) << daemon.log();
}

TEST(Wire, ServesOnBeyondTheDescriptorLimit)
{
    struct rlimit many = {};
    getrlimit(RLIMIT_NOFILE, &many);
    rlimit enough = {std::max<rlim_t>(many.rlim_cur, 2000), std::max<rlim_t>(many.rlim_max, 2000)};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &enough), 0);
    site s;
    s.add_faxes(s.inbox("alsmith"), 3);
    running_daemon daemon(s);

    std::vector<connection> crowd(1100);
    for (const connection &c : crowd)
        ASSERT_TRUE(c.is_open());
    EXPECT_EQ(crowd[0].call(2, al + whole_index).fax_ids().size(), 3u);
    EXPECT_EQ(crowd[800].call(2, al + whole_index).fax_ids().size(), 3u);
    EXPECT_TRUE(daemon.is_idle()) << "spins while clients wait to be let in";

    ASSERT_TRUE(crowd.back().send(call_bytes(9, al)));
    crowd.erase(crowd.begin(), crowd.end() - 1);
    EXPECT_EQ(crowd.back().receive().at(1), 3u) << "let in once others have gone";
}

}  // namespace faxtray
