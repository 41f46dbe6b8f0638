// The registry client with the real faxregd, with none, and with servers that only look like one.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "registry/regd_client.h"
#include "rpc/timed_client.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "support/wire.h"

namespace faxtray {

class handle {
public:
    handle() : slot_(regd_open(nullptr, 1)) { EXPECT_TRUE(slot_) << regd_error()->message; }
    ~handle() { regd_close(slot_); }
    operator regd_handle_t *() const { return slot_; }

private:
    regd_handle_t *slot_;
};

// "code sub-code: message" of the error record, "" without one.
static std::string trouble()
{
    const err_t *e = regd_error();
    return e ? std::to_string(e->code) + " " + std::to_string(e->sys_errno) + ": " + e->message : "";
}

static std::string trouble_in_opening(const char *host = nullptr)
{
    EXPECT_EQ(regd_open(host, 1), nullptr);
    return trouble();
}

// Bea's name, or the trouble.
static std::string ask(regd_handle_t *slot)
{
    const av_list_t *entry = regd_get_av_entry(slot, regd_credentials(), RG_USERS, 1, "Bea");
    return entry ? av_getv(entry, "human_name") : trouble();
}

TEST(Registry, StalledClientsHoldUpNobody)
{
    const site files;
    const running_registry daemon(files);
    std::vector<CLIENT *> stalled;
    for (const std::string &bytes :
         {word(0x80000064) + "half a request", std::string(1, '\x80'), word(0xFFFFFFFF) + "much"}) {
        int fd = -1;
        stalled.push_back(timed_clnt_create("localhost", REGD_PROG_BASE + 1, REGD_VERS, {5, 0}));
        ASSERT_TRUE(stalled.back() && clnt_control(stalled.back(), CLGET_FD, reinterpret_cast<char *>(&fd)));
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    EXPECT_EQ(ask(handle()), "Beatrice");
    for (CLIENT *client : stalled)
        clnt_destroy(client);
}

TEST(RegdClient, HasSixteenHandlesThatChildrenDoNotInherit)
{
    const site files;
    const running_registry daemon(files);
    std::vector<regd_handle_t *> slots;
    for (int n = 0; n < 16; n++)
        slots.push_back(regd_open(n % 2 ? "" : "localhost", 1));
    EXPECT_EQ(std::count(slots.begin(), slots.end(), nullptr), 0);
    EXPECT_EQ(run_shell("find /proc/self/fd -lname 'socket:*'").output, "");
    EXPECT_EQ(trouble_in_opening(), "15 0: Out of faxregd handles");
    EXPECT_EQ(regd_close(slots[7]), 1);
    slots[7] = regd_open(nullptr, 1);
    EXPECT_EQ(ask(slots[7]), "Beatrice");
    for (regd_handle_t *slot : slots)
        EXPECT_EQ(regd_close(slot), 1);
}

TEST(RegdClient, OutlivesItsRegistry)
{
    EXPECT_EQ(trouble_in_opening("no-such-host"), "15 0: Can't connect to faxregd: RPC: Unknown host");
    const site files;
    const running_registry daemon(files);
    const handle slot;
    daemon.end(SIGKILL);
    for (int n = 0; n < 3; n++)  // no SIGPIPE ends us
        EXPECT_EQ(ask(slot).find("15 0: rg_get_av_entry_1 failure: RPC: Unable to "), 0u);
    EXPECT_EQ(daemon.start().status, 0);  // so that it unregisters
}

// A reply's record to the call with that id: accepted and successful, then `result`.
static std::string reply_bytes(const std::string &xid, const std::string &result)
{
    const std::string body = xid + word(1) + std::string(16, '\0') + result;
    return word(0x80000000u | static_cast<uint32_t>(body.size())) + body;
}

// Lets one client in and answers its call, again and again if so wished, until the client has hung up.
static void talk(const false_registry &peer, std::string answer, bool repeated)
{
    const unique_fd client = peer.let_in();
    char call[1024], byte;
    recv(client.get(), call, sizeof call, 0);
    if (const size_t at = answer.find("XID?"); at != std::string::npos)
        answer.replace(at, 4, call + 4, 4);
    do
        send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    while (repeated && recv(client.get(), &byte, 1, answer.empty() ? 0 : MSG_DONTWAIT) < 0);
}

static const std::string failure = "15 0: rg_get_av_entry_1 failure: ", timeout = failure + "RPC: Timed out";

TEST(RegdClient, IsNotHeldUpByWhatIsNoRegistry)
{
    const std::string cut = failure + "RPC: Unable to receive; errno = ",
                      garbage = failure + "RPC: Can't decode result",
                      refusal = word(25) + word(7) + word(8) + text("refused");
    const struct {
        std::string answer;
        bool repeated;
        std::string trouble;
    } rows[] = {
        {"", true, timeout},  // says nothing, and stays
        {"", false, cut + "Connection reset by peer"},
        {"220 mail.example.com ready\r\n", true, cut + "Message too long"},
        {word(0), true, timeout},  // empty fragments without end
        {reply_bytes("ELSE", ""), true, timeout},
        {word(0x80000004) + "else", true, garbage},
        {reply_bytes("XID?", word(12) + word(1) + word(0x7FFFFFFF)), true, garbage},
        {reply_bytes("XID?", word(1) + word(0)), true, failure + "reply to another call"},
        {reply_bytes("XID?", word(12) + word(0)), true, failure + "no record"},
        {reply_bytes("ELSE", "") + reply_bytes("XID?", refusal), true, "7 8: refused"},
    };
    for (const auto &row : rows) {
        const false_registry peer;
        std::thread talker([&] { talk(peer, row.answer, row.repeated); });
        {
            const handle slot;
            regd_set_timeout(row.trouble == timeout ? timeval{0, 200000} : timeval{25, 0});
            EXPECT_EQ(ask(slot), row.trouble);
        }
        talker.join();
        regd_set_timeout({25, 0});
        regd_forget_timeout();
    }
}

}  // namespace faxtray
