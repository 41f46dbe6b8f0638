// The wire bytes as RFC 4506 gives them, and what strangers may send in their place.
#include "protocol/xdr_records.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <string>

#include "support/wire.h"
#include "support/xdr_memory.h"

namespace faxtray {

TEST(XdrRecords, ListingHasTheBytesOfTheStandard)
{
    char name[] = "f0001", sender[] = "+49 30";
    file_node_t second = {};
    file_node_t first = {{name, sender, nullptr, nullptr, 2, 1, 0x3E9, 123456, 0xF0000000}, &second};
    file_list_t list = {77, &first};
    in_res_t result = {};
    result.res_type = RES_INDEX;
    result.index = &list;
    std::string bytes = word(1) + word(1) + word(77) + word(1) + text("f0001") + text("+49 30") + text("") +
                        text("") + word(2) + word(1) + word(0x3E9) + word(123456) + word(0xF0000000) +
                        word(1) + std::string(16 + 20, '\0') + word(0);
    EXPECT_EQ(encode(xdr_in_res_t, &result), bytes);

    in_res_t read = {};
    ASSERT_TRUE(decode(xdr_in_res_t, &read, bytes));
    EXPECT_EQ(read.index->head->mtime, 0xF0000000);  // not negative
    EXPECT_STREQ(read.index->head->next->pwd_frame, "");
    free_decoded(xdr_in_res_t, &read);
    EXPECT_EQ(read.index, nullptr);
}

TEST(XdrRecords, ChunksOfEveryLengthComeBackWhole)
{
    for (u_int length : {0u, 1u, 4u, 262143u, 1048576u, 1048577u, 3000001u}) {
        std::string bytes(length, '\0');
        for (size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<char>(i * 31 >> 3);
        in_res_t result = {}, read = {};
        result.res_type = RES_FAX;
        result.fax = {length, bytes.data()};
        std::string wire = encode(xdr_in_res_t, &result);
        EXPECT_TRUE(wire == word(4) + text(bytes)) << length;
        u_int used = 0;
        ASSERT_TRUE(decode(xdr_in_res_t, &read, wire, &used)) << length;
        EXPECT_EQ(used, wire.size());
        EXPECT_TRUE(std::string(read.fax.bytes, read.fax.length) == bytes) << length;
        free_decoded(xdr_in_res_t, &read);
    }
}

TEST(XdrRecords, LengthsAreNotBelieved)
{
    // Refused at once; a claim that would pass costs what came, not what was claimed.
    for (u_int claim : {0xFFFFFFFFu, 0x80000000u, MAX_WIRE_LENGTH + 1, MAX_WIRE_LENGTH}) {
        in_res_t result = {};
        EXPECT_FALSE(decode(xdr_in_res_t, &result, word(4) + word(claim) + "some"));
        EXPECT_TRUE(claim == MAX_WIRE_LENGTH || result.fax.bytes == nullptr);
        EXPECT_LE(malloc_usable_size(result.fax.bytes), size_t{1100000});
        free_decoded(xdr_in_res_t, &result);

        df_info_req_t request = {};
        EXPECT_FALSE(decode(xdr_df_info_req_t, &request, word(1) + text("alice") + word(claim) + "some"));
        free_decoded(xdr_df_info_req_t, &request);
    }
}

TEST(XdrRecords, IdentityComesInEitherForm)
{
    for (const std::string &user : {std::string("alice"), std::string("a"), std::string("ab"),
                                    std::string("\xE9"), std::string(), std::string(256, 'x')}) {
        const std::string fields =
            text(user) + text("pw") + text("r") + word(0xFFFFFFF9) + word(5);  // the numbers: -7 and 5
        for (const std::string &bytes : {word(1) + fields, fields}) {
            SCOPED_TRACE(testing::PrintToString(bytes));
            pw_req_t *pw = nullptr;
            u_int used = 0;
            ASSERT_TRUE(decode(xdr_identity, &pw, bytes, &used));
            EXPECT_EQ(used, bytes.size());
            ASSERT_TRUE(pw);
            EXPECT_EQ(pw->user, user);
            EXPECT_EQ(pw->reserved_int, -7);
            EXPECT_EQ(encode(xdr_identity, &pw), word(1) + fields);
            free_decoded(xdr_identity, &pw);
            EXPECT_EQ(pw, nullptr);
            if (!user.empty())  // four zero bytes alone are an absent identity
                refuse_cut(xdr_identity, bytes);
        }
    }
    pw_req_t *absent = nullptr;
    ASSERT_TRUE(decode(xdr_identity, &absent, word(0)));
    EXPECT_EQ(absent, nullptr);
    EXPECT_EQ(encode(xdr_identity, &absent), word(0));
}

// Decodes, encodes and frees one result with a long chain; null when all went well.
static void *walk_long_chain(void *wire)
{
    const auto &bytes = *static_cast<const std::string *>(wire);
    in_res_t result = {};
    bool ok = decode(xdr_in_res_t, &result, bytes) && encode(xdr_in_res_t, &result) == bytes;
    free_decoded(xdr_in_res_t, &result);
    return ok ? nullptr : wire;
}

TEST(XdrRecords, LongChainsTakeConstantStack)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
    struct {
        std::string head, record, tail;
    } rows[] = {
        {word(7) + word(5), word(1) + text("") + text("") + word(1), word(0)},
        {word(1) + word(1) + word(5), word(1) + std::string(16, '\0') + std::string(20, '\1'), word(0)},
        {word(9) + word(1) + text("k") + word(1), word(1) + text("a") + text(""), word(0) + word(0)},
        {word(10), word(1) + text("k") + word(1) + word(0), word(0)}};
    for (const auto &row : rows) {
        std::string bytes = row.head;
        for (int i = 0; i < 100000; i++)
            bytes += row.record;
        bytes += row.tail;
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, walk_long_chain, &bytes), 0);
        void *failed = nullptr;
        pthread_join(thread, &failed);
        EXPECT_EQ(failed, nullptr) << row.record.size();
    }
    pthread_attr_destroy(&attributes);
}

}  // namespace faxtray
