// Every call of the registry client, as a registry receives it that writes down what it is asked; and what a
// hung registry costs.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "registry/regd_client.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "support/wire.h"
#include "util/io.h"

namespace faxtray {

// Words of four bytes as numbers, or as text where they hold letters.
static std::string readable(const std::string &bytes)
{
    std::string line;
    for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
        uint32_t number;
        memcpy(&number, bytes.data() + at, 4);
        line += ' ' + (bytes[at] > ' ' ? bytes.substr(at, 4).c_str() : std::to_string(ntohl(number)));
    }
    return line;
}

// Answers each call of one client with success, and writes down the procedure and its arguments.
struct recording_registry {
    ~recording_registry() { talker.join(); }  // the client has hung up
    void serve()
    {
        const unique_fd client = peer.let_in();
        uint32_t mark;
        while (read_full(client.get(), &mark, sizeof mark) == sizeof mark) {
            std::string call(ntohl(mark) & 0x7FFFFFFF, '\0');
            read_full(client.get(), call.data(), call.size());
            const auto procedure = static_cast<uint32_t>(call[23]);  // RFC 5531 section 9
            heard += readable(call.substr(20, 4) + call.substr(40)) + "\n";
            // One record "k", which as a number is 1; the revision's text is too long for the others.
            const std::string arm =
                procedure == 1 ? word(1) + word(2) + text("r") : word(1) + text("k") + std::string(12, '\0');
            const std::string body =
                call.substr(0, 4) + word(1) + std::string(16, '\0') + word(procedure - 1) + arm;
            const std::string reply = word(0x80000000u | static_cast<uint32_t>(body.size())) + body;
            write_full(client.get(), reply.data(), reply.size());
        }
    }

    const false_registry peer;
    std::string heard;
    std::thread talker{[this] { serve(); }};
};

TEST(RegdCalls, SendTheirProcedureAndArguments)
{
    recording_registry registry;
    regd_handle_t *h = regd_open("", 1);
    ASSERT_TRUE(h);
    std::string name = "anna";
    pw_req_t lent = {name.data(), nullptr, nullptr, 3, 7}, *pw = &lent;
    const av_list_ptr k(av_new("k"));
    const av_list_t *answers[] = {
        regd_get_stats(h, pw),         regd_get_q_status(h, pw),      regd_get_h_status(h, pw),
        regd_get_job_info(h, pw, 5),   regd_get_history(h, pw, 5),    regd_get_df_by_dir(h, pw, "/in"),
        regd_get_ui_entry(h, pw, "u"), regd_get_mi_entry(h, pw, "m"), regd_get_df_entry(h, pw, nullptr),
        regd_get_ui_list(h, pw),       regd_get_mi_list(h, pw),       regd_get_df_list(h, nullptr),
        regd_get_conf_list(h, pw)};
    EXPECT_EQ(std::count(std::begin(answers), std::end(answers), nullptr), 0);
    EXPECT_STREQ(pw->password, "") << "copying fills the source too";
    const int64_t numbers[] = {regd_new_faxid(h),
                               regd_validate_pn(h, "+49 30"),
                               regd_get_time(h),
                               regd_get_list_update_time(h, 2),
                               regd_update(h, pw, k.get()),
                               regd_shutdown(h, pw),
                               regd_set_job_info(h, pw, 5, nullptr),
                               regd_delete_job(h, pw, 5),
                               regd_suspend_job(h, pw, 5, 9),
                               regd_lock_list(h, pw, 2),
                               regd_update_list_entry(h, pw, 2, k.get()),
                               regd_delete_list_entry(h, pw, 2, "x"),
                               regd_commit_list(h, pw, 2),
                               regd_rollback_list(h, pw, 2)};
    EXPECT_EQ(std::count(std::begin(numbers), std::end(numbers), 1), 14);
    ASSERT_TRUE(regd_rev(h));
    regd_close(h);
    EXPECT_EQ(read_file(TEST_DATA "/registry_calls.ref"), registry.heard);
}

// One wait a request, however many calls and handles; the next request tries again.
TEST(RegdCalls, WaitForAHungRegistryOnceARequest)
{
    using clock = std::chrono::steady_clock;
    const false_registry peer;  // lets nobody in, but the kernel does
    regd_handle_t *slots[] = {regd_open("", 1), regd_open("", 1), regd_open("", 1)};
    regd_set_timeout({0, 300000});
    for (regd_handle_t *slot : slots) {
        const auto start = clock::now();
        EXPECT_EQ(regd_get_time(slot), -1);
        EXPECT_EQ(clock::now() - start >= std::chrono::milliseconds(300), slot != slots[1]);
        EXPECT_EQ(regd_open("", 1), nullptr);
        EXPECT_STREQ(regd_error()->message, "rg_get_time_1 failure: RPC: Timed out");
        if (slot != slots[0])
            regd_forget_timeout();
    }
    EXPECT_EQ(peer.count_clients(), 3) << "no further one once a call has timed out";
    regd_set_timeout({25, 0});
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
