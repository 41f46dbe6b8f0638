// Every call of the registry client, as a registry receives it that writes down what it is asked; and what a hung
// registry costs.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <thread>

#include "registry/regd_client.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "support/wire.h"
#include "util/io.h"

namespace faxtray {

// Answers each call of one client with that call's success tag and `arm`.
struct recording_registry {
    ~recording_registry() { talker.join(); }  // the client has hung up
    void serve()
    {
        const unique_fd client = peer.let_in();
        uint32_t mark;
        while (read_full(client.get(), &mark, sizeof mark) == sizeof mark) {
            std::string call(ntohl(mark) & 0x7FFFFFFF, '\0');
            read_full(client.get(), call.data(), call.size());
            heard = call.substr(20, 4) + call.substr(40);  // RFC 5531: procedure; what follows empty credentials
            std::string reply = call.substr(0, 4) + word(1) + std::string(16, '\0') + call.substr(20, 4) + arm;
            reply[27]--;  // the procedure number, less one: the tag
            reply.insert(0, word(0x80000000u | static_cast<uint32_t>(reply.size())));
            write_full(client.get(), reply.data(), reply.size());
        }
    }

    const false_registry peer;
    std::string arm, heard;
    std::thread talker{[this] { serve(); }};
};

static std::string shown(const av_list_t *list) { return list ? list->key : "none"; }
static std::string shown(const rev_t *rev) { return rev ? rev->revision : "none"; }
static std::string shown(int64_t number) { return std::to_string(number); }

TEST(RegdCalls, SendTheirProcedureAndArguments)
{
    recording_registry registry;
    regd_handle_t *h = regd_open("", 1);
    ASSERT_TRUE(h);
    std::string name = "anna";
    pw_req_t identity_record = {name.data(), nullptr, nullptr, 0, 7}, *pw = &identity_record;
    const av_list_ptr k(av_new("k"));
    const std::string me = identity("anna", "", 7), list = word(1) + text("k") + word(0) + word(0) + word(0);
    std::map<std::string, std::string> arms = {
        {"k", list}, {"77", word(77)}, {"r", word(1) + word(2) + text("r")}, {"1", ""}};
    const struct {
        uint32_t procedure;
        std::string arguments, result;
        std::function<std::string()> call;
    } rows[] = {
        {1, "", "r", [&] { return shown(regd_rev(h)); }},
        {2, me, "k", [&] { return shown(regd_get_stats(h, pw)); }},
        {3, me + list, "1", [&] { return shown(regd_update(h, pw, k.get())); }},
        {4, me, "1", [&] { return shown(regd_shutdown(h, pw)); }},
        {5, "", "77", [&] { return shown(regd_new_faxid(h)); }},
        {6, me, "k", [&] { return shown(regd_get_q_status(h, pw)); }},
        {7, me + word(5), "k", [&] { return shown(regd_get_job_info(h, pw, 5)); }},
        {8, me + word(5) + list, "1", [&] { return shown(regd_set_job_info(h, pw, 5, k.get())); }},
        {9, me + word(5), "1", [&] { return shown(regd_delete_job(h, pw, 5)); }},
        {10, text("+49 30"), "77", [&] { return shown(regd_validate_pn(h, "+49 30")); }},
        {11, me + word(5), "k", [&] { return shown(regd_get_history(h, pw, 5)); }},
        {12, "", "77", [&] { return shown(regd_get_time(h)); }},
        {13, me + word(0) + text("x") + word(1), "k", [&] { return shown(regd_get_ui_entry(h, pw, "x")); }},
        {13, me + word(1) + text("x") + word(0), "k", [&] { return shown(regd_get_mi_entry(h, pw, "x")); }},
        {13, me + word(2) + text("x") + word(1), "k", [&] { return shown(regd_get_df_entry(h, pw, "x")); }},
        {14, me + word(0) + word(1), "k", [&] { return shown(regd_get_ui_list(h, pw)); }},
        {14, me + word(1) + word(0), "k", [&] { return shown(regd_get_mi_list(h, pw)); }},
        {14, me + word(2) + word(1), "k", [&] { return shown(regd_get_df_list(h, pw)); }},
        {14, me + word(3) + word(0), "k", [&] { return shown(regd_get_conf_list(h, pw)); }},
        {15, me, "k", [&] { return shown(regd_get_h_status(h, pw)); }},
        {16, me + word(5) + word(9), "1", [&] { return shown(regd_suspend_job(h, pw, 5, 9)); }},
        {19, me + text("/in"), "k", [&] { return shown(regd_get_df_by_dir(h, pw, "/in")); }},
        {20, word(2), "77", [&] { return shown(regd_get_list_update_time(h, 2)); }},
        {21, me + word(2), "1", [&] { return shown(regd_lock_list(h, pw, 2)); }},
        {22, me + word(2) + list, "1", [&] { return shown(regd_update_list_entry(h, pw, 2, k.get())); }},
        {23, me + word(2) + text("x"), "1", [&] { return shown(regd_delete_list_entry(h, pw, 2, "x")); }},
        {24, me + word(2), "1", [&] { return shown(regd_commit_list(h, pw, 2)); }},
        {25, me + word(2), "1", [&] { return shown(regd_rollback_list(h, pw, 2)); }},
    };
    for (const auto &row : rows) {
        registry.arm = arms[row.result];
        EXPECT_EQ(row.call(), row.result) << row.procedure;
        EXPECT_EQ(registry.heard, word(row.procedure) + row.arguments) << row.procedure;
    }
    regd_close(h);
}

// One wait a request, however many calls and handles; the next request tries again.
TEST(RegdCalls, WaitForAHungRegistryOnceARequest)
{
    using clock = std::chrono::steady_clock;
    const false_registry peer;  // never lets anybody in, but the kernel does
    regd_handle_t *slots[] = {regd_open("", 1), regd_open("", 1)};
    regd_set_timeout({0, 300000});
    for (bool waits : {true, false, true}) {
        for (regd_handle_t *slot : slots) {
            const auto start = clock::now();
            EXPECT_EQ(regd_get_time(slot), -1);
            EXPECT_EQ(clock::now() - start >= std::chrono::milliseconds(300), waits && slot == slots[0]);
        }
        EXPECT_EQ(regd_open("", 1), nullptr);
        EXPECT_STREQ(regd_error()->message, "rg_get_time_1 failure: RPC: Timed out");
        if (!waits)
            regd_forget_timeout();
    }
    EXPECT_EQ(peer.count_clients(), 2) << "no further one once a call has timed out";
    regd_set_timeout({25, 0});
    regd_forget_timeout();
    for (regd_handle_t *slot : slots)
        regd_close(slot);
}

// The lists are this host's alone: of all listening sockets only the port mapper's takes strangers.
TEST(Companion, ListensOnTheLoopbackAddressOnly)
{
    const site files;
    const running_registry daemon(files);
    EXPECT_EQ(run_shell("grep -h ' 0*:[0-9A-F]* 0*:0000 0A ' /proc/net/tcp | grep -v ':006F '").output, "");
    EXPECT_NE(run_shell("grep -h ' 0100007F:[0-9A-F]* 0*:0000 0A ' /proc/net/tcp").output, "");
}

}  // namespace faxtray
