// What the registry client sends and understands, and what it says without a registry.
#include "registry/regd_client.h"

#include <gtest/gtest.h>

#include "registry/xdr_regd.h"
#include "support/wire.h"
#include "support/xdr_memory.h"

namespace faxtray {

// Expects a request to stand on the wire as `bytes`, behind the caller's identity or its absence, to come
// back whole and to be freed whole. `make` makes it for the credentials it is given.
template <class Request, class Make> static void sends(const std::string &bytes,
                                                       bool_t (*routine)(XDR *, Request *) noexcept,
                                                       void (*free_made)(Request *), Make make)
{
    std::string name = "anna";
    pw_req_t pw = {name.data(), nullptr, nullptr, 0, 7};
    for (pw_req_t *credentials : {&pw, static_cast<pw_req_t *>(nullptr)}) {
        name = "anna";
        Request *request = make(credentials);
        ASSERT_TRUE(request);
        name = "gone";  // what was copied stays
        const std::string wire = (credentials ? identity("anna", "", 7) : word(0)) + bytes;
        EXPECT_EQ(encode(routine, request), wire);
        free_made(request);

        Request decoded = {};
        EXPECT_TRUE(decode(routine, &decoded, wire));
        EXPECT_EQ(encode(routine, &decoded), wire);
        free_decoded(routine, &decoded);
        refuse_cut(routine, wire);
    }
}

TEST(RegdRequests, GoOutWholeAndOwnWhatTheyHold)
{
    av_list_ptr settings(av_new("k"));
    ASSERT_TRUE(av_put(settings.get(), "attr", "value"));
    settings->check_value = -1;
    const std::string list =
        word(1) + text("k") + word(0xFFFFFFFF) + word(1) + text("attr") + text("value") + word(0) + word(0);

    sends(word(0) + text("admin") + word(1), xdr_rg_av_req_t, free_av_req,
          [](pw_req_t *pw) { return new_av_req(pw, RG_USERS, "admin", 1); });
    sends(word(2) + text("") + word(0), xdr_rg_av_req_t, free_av_req,
          [](pw_req_t *pw) { return new_av_req(pw, RG_FORWARDERS, nullptr, 0); });
    sends(word(3) + word(9), xdr_rg_av_list_req_t, free_av_list_req,
          [](pw_req_t *pw) { return new_av_list_req(pw, RG_CONF, 9); });
    sends(list, xdr_rg_q_update_req_t, free_q_update_req,
          [&](pw_req_t *pw) { return new_q_update_req(pw, settings.get()); });
    sends(word(5) + word(0), xdr_rg_job_update_req_t, free_job_update_req,
          [](pw_req_t *pw) { return new_job_update_req(pw, 5, nullptr); });
    sends(word(5), xdr_rg_job_req_t, free_job_info_req, [](pw_req_t *pw) { return new_job_info_req(pw, 5); });
    sends(word(5) + word(1), xdr_rg_job_suspend_req_t, free_job_suspend_req,
          [](pw_req_t *pw) { return new_job_suspend_req(pw, 5, 1); });
    sends(text("/fax/in"), xdr_rg_get_df_by_dir_req_t, free_get_df_by_dir_req,
          [](pw_req_t *pw) { return new_get_df_by_dir_req(pw, "/fax/in"); });
    sends(word(1), xdr_rg_list_req_t, free_rg_lock_av_list_req,
          [](pw_req_t *pw) { return new_rg_lock_av_list_req(pw, RG_MODEMS); });
    sends(word(0) + list, xdr_rg_update_av_entry_req_t, free_rg_update_av_entry_req,
          [&](pw_req_t *pw) { return new_rg_update_av_entry_req(pw, RG_USERS, settings.get()); });
    sends(word(0) + text("bea"), xdr_rg_delete_av_entry_req_t, free_rg_delete_av_entry_req,
          [](pw_req_t *pw) { return new_rg_delete_av_entry_req(pw, RG_USERS, "bea"); });
}

TEST(RegdReplies, CarryTheArmOfTheirTag)
{
    const std::string error = word(11) + word(2) + text("no such user");
    const std::pair<uint32_t, std::string> rows[] = {{0, word(1) + word(2) + text("3")},
                                                     {4, word(77)},
                                                     {2, ""},
                                                     {24, ""},
                                                     {16, error},
                                                     {17, error},
                                                     {25, error},
                                                     {26, error},
                                                     {0xFFFFFFFF, error}};
    for (const auto &[tag, arm] : rows) {
        rg_res_t reply = {};
        EXPECT_TRUE(decode(xdr_rg_res_t, &reply, word(tag) + arm)) << tag;
        EXPECT_EQ(encode(xdr_rg_res_t, &reply), word(tag) + arm) << tag;
        free_decoded(xdr_rg_res_t, &reply);
    }
}

TEST(RegdReplies, RecordsComeInEitherForm)
{
    for (const std::string &key :
         {std::string("anna"), std::string("a"), std::string("\xE9"), std::string(300, 'x')}) {
        const std::string list = text(key) + word(0xFFFFFFFE) + word(1) + text("a") + text("v") + word(0) +
                                 word(1) + text("next") + word(0) + word(0) + word(0);
        for (const std::string &arm : {word(1) + list, list}) {
            rg_res_t reply = {};
            ASSERT_TRUE(decode(xdr_rg_res_t, &reply, word(12) + arm)) << key;
            EXPECT_EQ(reply.records->key, key);
            EXPECT_EQ(reply.records->check_value, -2);
            EXPECT_STREQ(reply.records->next->key, "next");
            EXPECT_EQ(encode(xdr_rg_res_t, &reply), word(12) + word(1) + list);
            free_decoded(xdr_rg_res_t, &reply);
            refuse_cut(xdr_rg_res_t, word(12) + arm);
        }
    }
    rg_res_t absent = {};
    EXPECT_TRUE(decode(xdr_rg_res_t, &absent, word(12) + word(0)));
    EXPECT_EQ(absent.records, nullptr);
}

TEST(RegdClient, KeepsOneErrorRecord)
{
    EXPECT_EQ(regd_open(nullptr, 123456), nullptr);  // nobody's program
    ASSERT_NE(regd_error(), nullptr);
    EXPECT_EQ(regd_error()->code, 15);
    EXPECT_EQ(regd_error()->sys_errno, 0);
    EXPECT_EQ(std::string(regd_error()->message).rfind("Can't connect to faxregd", 0), 0u)
        << regd_error()->message;

    err_t source = {11, 2, nullptr};
    EXPECT_EQ(set_regd_error(&source), 1);
    EXPECT_EQ(regd_error()->code, 11);
    EXPECT_EQ(regd_error()->sys_errno, 2);
    EXPECT_STREQ(regd_error()->message, "");
    EXPECT_EQ(set_regd_error(regd_error()), 1) << "a copy of itself";
    EXPECT_EQ(regd_close(nullptr), 0);
    EXPECT_EQ(regd_error(), nullptr);
    EXPECT_EQ(regd_get_ui_entry(nullptr, regd_credentials(), "anna"), nullptr);
    EXPECT_EQ(regd_error()->code, 15);
}

}  // namespace faxtray
