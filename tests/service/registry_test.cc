// The registry client with the real faxregd, with none, and with servers that only look like one.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <rpc/pmap_clnt.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <thread>

#include "protocol/timed_client.h"
#include "registry/regd_client.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "support/wire.h"

namespace faxtray {

static constexpr u_long Program = REGD_PROG_BASE + 1;

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
    const err_t *error = regd_error();
    return error
               ? std::to_string(error->code) + " " + std::to_string(error->sys_errno) + ": " + error->message
               : "";
}

// Calls wait for a moment only, for as long as this lives.
class short_patience {
public:
    explicit short_patience(bool wanted = true)
    {
        if (wanted)
            regd_set_timeout({0, 200000});
    }
    ~short_patience() { regd_set_timeout({25, 0}); }
};

// One attribute of a record, or the trouble.
static std::string ask(regd_handle_t *slot, int list_kind, const char *key, const char *attr)
{
    const av_list_t *entry = regd_get_av_entry(slot, regd_credentials(), list_kind, 1, key);
    if (!entry)
        return trouble();
    EXPECT_EQ(entry->next, nullptr);
    const char *value = av_getv(entry, attr);
    return value ? value : "(none)";
}

TEST(Registry, AnswersFromBothLists)
{
    const site files;
    const running_registry daemon(files);
    const handle slot;
    const struct {
        int list_kind;
        const char *key, *attr, *value;
    } rows[] = {
        {RG_USERS, "admin", "server_mail_from", "Ondrix_server"},
        {RG_USERS, "Ad-min", "fax_forwarding", "true"},  // defaults are merged in
        {RG_USERS, "al.smith", "human_name", "Al"},
        {RG_USERS, "Bea", "password", "(none)"},
        {RG_USERS, "Carol", "", "11 0: Regd: Invalid user name: [Carol]."},
        {RG_USERS, "", "", "11 0: Regd: Invalid user name: []."},
        {RG_MODEMS, "ttyS0", "incoming_gui", "Front Desk"},
        {RG_MODEMS, "ttys0", "", "11 0: Regd: Invalid modem name: [ttys0]."},
        {RG_MODEMS, "", "", "11 0: Regd: Invalid modem name: []."},
        {RG_FORWARDERS, "BEA", "forwarder", "Front Desk"},
        {RG_FORWARDERS, "Al Smith", "", "11 0: Regd: Invalid forwarder name: [Al Smith]."},
        {RG_CONF, "any", "", "19 38: Regd: List 3 is not served here."},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(slot, row.list_kind, row.key, row.attr), row.value) << row.list_kind << row.key;
    EXPECT_EQ(trouble(), rows[11].value);
    ASSERT_TRUE(regd_rev(slot));
    EXPECT_EQ(trouble(), "");

    EXPECT_EQ(regd_get_time(slot), -1);
    EXPECT_EQ(trouble(), "19 38: Regd: Procedure 12 is not served here.");
    EXPECT_EQ(regd_rollback_list(slot, regd_credentials(), 0), -1);
    EXPECT_EQ(trouble(), "19 38: Regd: Procedure 25 is not served here.");
}

TEST(Registry, RereadsListsThatChanged)
{
    const site files;
    const running_registry daemon(files);
    const handle slot;
    EXPECT_EQ(ask(slot, RG_USERS, "Carol", "human_name").substr(0, 2), "11");
    files.write_users("[Carol]\nhuman_name = C\n[admin]\nserver_mail_from = me\n");
    EXPECT_EQ(ask(slot, RG_USERS, "Carol", "human_name"), "C");
    EXPECT_EQ(ask(slot, RG_USERS, "admin", "server_mail_from"), "me");

    ASSERT_EQ(unlink((files / "USER_LIST.info").c_str()), 0);
    EXPECT_EQ(ask(slot, RG_USERS, "Carol", "human_name"), "C")
        << "what was read stands while there is no file";
    files.write_users();
    EXPECT_EQ(ask(slot, RG_USERS, "Carol", "human_name").substr(0, 2), "11");

    EXPECT_EQ(ask(slot, RG_MODEMS, "ttyS1", "usage").substr(0, 2), "11");
    files.add(files.path(), "MODEMS.info", "[ttyS1]\nusage = ondrix_i\n");
    EXPECT_EQ(ask(slot, RG_MODEMS, "ttyS1", "usage"), "ondrix_i");
}

TEST(Registry, OneRunsOnAHost)
{
    const site files;
    const running_registry daemon(files);
    EXPECT_EQ(daemon.start().status, 10);
    EXPECT_NE(daemon.said().find("faxregd: A registry daemon is already running on localhost\n"),
              std::string::npos);
    daemon.end(SIGKILL);
    EXPECT_EQ(daemon.start().status, 0) << "despite the old registration";
    daemon.end(SIGTERM);
    EXPECT_EQ(run_shell("rpcinfo -p").output.find(" 351165 "), std::string::npos) << "unregistered";
    EXPECT_EQ(run_shell(FAXREGD " -x").status, 10);
    EXPECT_EQ(run_shell(FAXREGD " -h").output.rfind("usage: faxregd ", 0), 0u);
    stop_port_mapper();
    EXPECT_EQ(daemon.start().status, 10);
    EXPECT_NE(daemon.said().find("faxregd: Can't create service: Connection refused\n"), std::string::npos);
    start_port_mapper();
    EXPECT_EQ(daemon.start().status, 0);
}

TEST(Registry, StalledClientsHoldUpNobody)
{
    const site files;
    const running_registry daemon(files);
    std::vector<CLIENT *> stalled;
    for (const std::string &bytes :
         {word(0x80000064) + "half a request", std::string(1, '\x80'), word(0xFFFFFFFF) + "much"}) {
        int fd = -1;
        stalled.push_back(timed_clnt_create("localhost", Program, REGD_VERS, {5, 0}));
        ASSERT_TRUE(stalled.back() && clnt_control(stalled.back(), CLGET_FD, reinterpret_cast<char *>(&fd)));
        ASSERT_EQ(send(fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }
    const handle slot;
    EXPECT_EQ(ask(slot, RG_USERS, "Bea", "human_name"), "Beatrice");
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
    EXPECT_EQ(ask(slots[15], RG_USERS, "Bea", "human_name"), "Beatrice");
    EXPECT_EQ(run_shell("find /proc/self/fd -lname 'socket:*'").output, "");

    EXPECT_EQ(regd_open(nullptr, 1), nullptr);
    EXPECT_EQ(trouble(), "15 0: Out of faxregd handles");
    EXPECT_EQ(regd_close(slots[7]), 1);
    slots[7] = regd_open(nullptr, 1);
    EXPECT_TRUE(slots[7]);
    for (regd_handle_t *slot : slots)
        EXPECT_EQ(regd_close(slot), 1);
}

TEST(RegdClient, TellsHowARegistryIsMissing)
{
    EXPECT_EQ(regd_open(nullptr, 1), nullptr);
    EXPECT_EQ(trouble(), "15 0: Can't connect to faxregd: RPC: Program not registered");
    EXPECT_EQ(regd_open("no-such-host", 1), nullptr);
    EXPECT_EQ(trouble(), "15 0: Can't connect to faxregd: RPC: Unknown host");

    const site files;
    const running_registry daemon(files);
    const handle slot;
    daemon.end(SIGKILL);
    const std::string lost = "15 0: rg_get_av_entry_1 failure: RPC: Unable to ";
    for (int n = 0; n < 3; n++)  // no SIGPIPE ends us
        EXPECT_EQ(ask(slot, RG_USERS, "Bea", "human_name").substr(0, lost.size()), lost);
    EXPECT_EQ(regd_open(nullptr, 1), nullptr);
    EXPECT_EQ(trouble(), "15 0: Can't connect to faxregd: RPC: Remote system error - Connection refused");
    EXPECT_EQ(daemon.start().status, 0);
}

// Registers a port as the registry's; in a child, since libtirpc leaks on the way.
static bool register_port(in_port_t port)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(pmap_set(Program, REGD_VERS, IPPROTO_TCP, port) ? 0 : 1);
    int status = 1;
    return waitpid(child, &status, 0) == child && status == 0;
}

static void unregister()
{
    EXPECT_EQ(run_shell("rpcinfo -d " + std::to_string(Program) + " 1").status, 0);
}

// A listening socket, registered as the registry. With `talk`, one client is let in and given to it.
class false_registry {
public:
    explicit false_registry(std::function<void(int fd)> talk = nullptr)
        : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        struct sockaddr_in address = {};
        socklen_t length = sizeof address;
        address.sin_family = AF_INET;
        EXPECT_EQ(listen(listener_.get(), 5), 0);
        EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<struct sockaddr *>(&address), &length), 0);
        EXPECT_TRUE(register_port(ntohs(address.sin_port)));
        if (talk)
            talker_ = std::thread([this, talk] {
                const unique_fd client(accept(listener_.get(), nullptr, nullptr));
                talk(client.get());
            });
    }
    ~false_registry()
    {
        if (talker_.joinable())
            talker_.join();
        unregister();
    }

private:
    unique_fd listener_;
    std::thread talker_;
};

// A reply's record to the call with that id: accepted and successful, then `result`.
static std::string reply_bytes(const std::string &xid, const std::string &result)
{
    const std::string body = xid + word(1) + word(0) + word(0) + word(0) + word(0) + result;
    return word(0x80000000u | static_cast<uint32_t>(body.size())) + body;
}

TEST(RegdClient, IsNotHeldUpByWhatIsNoRegistry)
{
    const std::string failure = "15 0: rg_get_av_entry_1 failure: ";
    const std::string timeout = failure + "RPC: Timed out",
                      cut = failure + "RPC: Unable to receive; errno = ",
                      garbage = failure + "RPC: Can't decode result";
    const std::string error = word(25) + word(7) + word(8) + text("refused");
    const struct {
        std::function<std::string(const std::string &xid)> answer;
        bool repeated;
        std::string trouble;
    } rows[] = {
        {[](auto &) { return std::string(); }, true, timeout},  // says nothing, and stays
        {[](auto &) { return std::string(); }, false, cut + "Connection reset by peer"},
        {[](auto &) { return std::string("220 mail.example.com ready\r\n"); }, true,
         cut + "Message too long"},
        {[](auto &) { return word(0); }, true, timeout},  // empty fragments without end
        {[](auto &) { return reply_bytes("ELSE", ""); }, true, timeout},
        {[](auto &) { return word(0x80000004) + "xid?"; }, true, garbage},
        {[](auto &xid) { return reply_bytes(xid, word(12) + word(1) + word(0x7FFFFFFF)); }, true, garbage},
        {[](auto &xid) { return reply_bytes(xid, word(1) + word(0)); }, true,
         failure + "reply to another call"},
        {[](auto &xid) { return reply_bytes(xid, word(12) + word(0)); }, true, failure + "no record"},
        {[&](auto &xid) { return reply_bytes("ELSE", "") + reply_bytes(xid, error); }, true, "7 8: refused"},
    };
    for (const auto &row : rows) {
        const false_registry peer([&](int fd) {
            char call[1024];
            recv(fd, call, sizeof call, 0);
            const std::string bytes = row.answer(std::string(call + 4, 4));
            char byte;
            do  // until the client has hung up
                send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            while (row.repeated && recv(fd, &byte, 1, bytes.empty() ? 0 : MSG_DONTWAIT) < 0);
        });
        {
            const handle slot;
            const short_patience hurry(row.trouble == timeout);
            EXPECT_EQ(ask(slot, RG_USERS, "Bea", ""), row.trouble);
        }
        regd_forget_timeout();
    }
}

TEST(RegdClient, WaitsForAHungRegistryOnceARequest)
{
    const std::string hung = "15 0: rg_get_av_entry_1 failure: RPC: Timed out";
    {
        const false_registry peer;  // never lets anybody in, but the kernel does
        const handle slot, other;
        const short_patience hurry;
        EXPECT_EQ(ask(slot, RG_USERS, "Bea", ""), hung);
        EXPECT_EQ(ask(other, RG_USERS, "Bea", ""), hung);
    }
    const site files;
    const running_registry daemon(files);  // a sound one makes no difference until the request has ended
    EXPECT_EQ(regd_open(nullptr, 1), nullptr);
    EXPECT_EQ(trouble(), hung);
    regd_forget_timeout();
    const handle slot;
    EXPECT_EQ(ask(slot, RG_USERS, "Bea", "human_name"), "Beatrice");
}

}  // namespace faxtray
