// What the registry client understands, and what it reports without a registry. The calls themselves are in
// service/registry_calls_test.cc.
#include "registry/regd_client.h"

#include <gtest/gtest.h>

#include "faxfile/fax_header.h"
#include "registry/xdr_regd.h"
#include "support/wire.h"
#include "support/xdr_memory.h"

namespace faxtray {

TEST(RegdReplies, CarryTheArmOfTheirTag)
{
    const std::string error = word(11) + word(2) + text("no such user");
    const std::pair<std::vector<uint32_t>, std::string> rows[] = {{{0}, word(1) + word(2) + text("3")},
                                                                  {{4}, word(77)},
                                                                  {{2, 24}, ""},
                                                                  {{16, 17, 25, 26, 0xFFFFFFFF}, error}};
    for (const auto &[tags, arm] : rows)
        for (uint32_t tag : tags) {
            rg_res_t reply = {};
            EXPECT_TRUE(decode(xdr_rg_res_t, &reply, word(tag) + arm)) << tag;
            EXPECT_EQ(encode(xdr_rg_res_t, &reply), word(tag) + arm) << tag;
            free_decoded(xdr_rg_res_t, &reply);
        }
}

TEST(RegdReplies, RecordsComeInEitherForm)
{
    for (const std::string &key :
         {std::string("anna"), std::string("a"), std::string("\xE9"), std::string(300, 'x'), std::string()}) {
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
            if (!key.empty())  // four zero bytes alone are an absent record
                refuse_cut(xdr_rg_res_t, word(12) + arm);
        }
    }
    rg_res_t absent = {};
    EXPECT_TRUE(decode(xdr_rg_res_t, &absent, word(12) + word(0)));
    EXPECT_EQ(absent.records, nullptr);
}

TEST(RegdClient, KeepsOneErrorRecord)
{
    const err_t source = {11, 2, nullptr};
    EXPECT_EQ(set_regd_error(&source), 1);
    EXPECT_EQ(set_regd_error(regd_error()), 1) << "a copy of itself";
    EXPECT_EQ(regd_error()->code, 11);
    EXPECT_EQ(regd_error()->sys_errno, 2);
    EXPECT_STREQ(regd_error()->message, "");
    EXPECT_EQ(regd_close(nullptr), 0);
    EXPECT_EQ(regd_error(), nullptr);
    EXPECT_EQ(regd_get_ui_entry(nullptr, regd_credentials(), "anna"), nullptr);
    EXPECT_EQ(regd_error()->code, 15);
    EXPECT_EQ(regd_credentials()->check_value, FAX_MAGIC);
}

}  // namespace faxtray
