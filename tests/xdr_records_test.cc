// What strangers may send in place of records, and long records.
#include "protocol/xdr_records.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <string>

#include "support/wire.h"
#include "support/xdr_memory.h"

namespace faxtray {

// Decodes, encodes and frees one result; null when its bytes came back.
static void *round_trip(void *wire)
{
    const auto &bytes = *static_cast<const std::string *>(wire);
    in_res_t result = {};
    bool ok = decode(xdr_in_res_t, &result, bytes) && encode(xdr_in_res_t, &result) == bytes;
    free_decoded(xdr_in_res_t, &result);
    return ok ? nullptr : wire;
}

TEST(XdrRecords, ChunksOfEveryLengthComeBackWhole)
{
    for (u_int length : {0u, 1u, 4u, 262143u, 1048576u, 1048577u, 3000001u}) {
        std::string bytes;
        for (u_int i = 0; i < length; i++)
            bytes += static_cast<char>(i * 31 >> 3);
        std::string wire = word(4) + text(bytes);
        EXPECT_FALSE(round_trip(&wire)) << length;
    }
}

TEST(XdrRecords, LengthsAreNotBelieved)
{
    // Refused at once; a claim that would pass costs what came, not what was claimed.
    for (u_int claim : {0xFFFFFFFFu, 0x80000000u, max_wire_length + 1, max_wire_length}) {
        in_res_t result = {};
        EXPECT_FALSE(decode(xdr_in_res_t, &result, word(4) + word(claim) + "some"));
        EXPECT_TRUE(claim == max_wire_length || result.fax.bytes == nullptr);
        EXPECT_LE(malloc_usable_size(result.fax.bytes), size_t{1100000});
        free_decoded(xdr_in_res_t, &result);

        df_info_req_t request = {};
        EXPECT_FALSE(decode(xdr_df_info_req_t, &request, word(1) + text("alice") + word(claim) + "some"));
        free_decoded(xdr_df_info_req_t, &request);
    }
}

TEST(XdrRecords, IdentityComesInEitherForm)
{
    for (const std::string &user :
         {std::string("alice"), std::string("\xE9"), std::string(256, 'x'), std::string()}) {
        const std::string fields = text(user) + text("pw") + text("r") + word(7) + word(5);
        for (const std::string &bytes : {word(1) + fields, fields}) {
            pw_req_t *pw = nullptr;
            ASSERT_TRUE(decode(xdr_identity, &pw, bytes) && pw) << user;
            EXPECT_EQ(pw->user, user);
            EXPECT_EQ(encode(xdr_identity, &pw), word(1) + fields);
            free_decoded(xdr_identity, &pw);
            EXPECT_EQ(pw, nullptr);
            if (!user.empty())  // four zero bytes alone are an absent identity
                refuse_cut(xdr_identity, bytes);
        }
    }
    pw_req_t *absent = nullptr;
    EXPECT_TRUE(decode(xdr_identity, &absent, word(0)) && !absent);
    EXPECT_EQ(encode(xdr_identity, &absent), word(0));
}

TEST(XdrRecords, LongChainsTakeConstantStack)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
    const struct {
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
        ASSERT_EQ(pthread_create(&thread, &attributes, round_trip, &bytes), 0);
        void *failed = nullptr;
        pthread_join(thread, &failed);
        EXPECT_EQ(failed, nullptr) << row.record.size();
    }
    pthread_attr_destroy(&attributes);
}

}  // namespace faxtray
