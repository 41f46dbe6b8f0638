// The wire bytes as RFC 4506 gives them, and what strangers may send in their place.
#include "protocol/xdr_records.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>

#include <string>

#include "support/wire.h"
#include "support/xdr_memory.h"

namespace faxtray {

// The five fields in line, the numbers being -7 and 5.
static std::string identity_fields(const std::string &user, const char *password = "pw")
{
    return text(user) + text(password) + text("r") + word(0xFFFFFFF9) + word(5);
}

TEST(XdrRecords, ListingHasTheBytesOfTheStandard)
{
    char name[] = "f0001", sender[] = "+49 30";
    file_node_t second = {};
    file_node_t first = {{name, sender, nullptr, nullptr, 2, 1, 0x3E9, 123456, 0xF0000000}, &second};
    file_list_t list = {77, &first};
    in_res_t result = {};
    result.res_type = RES_INDEX;
    result.index = &list;
    std::string empty_fax = text("") + text("") + text("") + text("") + std::string(20, '\0');
    std::string bytes = word(1) + word(1) + word(77) + word(1) + text("f0001") + text("+49 30") + text("") +
                        text("") + word(2) + word(1) + word(0x3E9) + word(123456) + word(0xF0000000) +
                        word(1) + empty_fax + word(0);
    EXPECT_EQ(encode(xdr_in_res_t, &result), bytes);

    in_res_t read = {};
    ASSERT_TRUE(decode(xdr_in_res_t, &read, bytes));
    EXPECT_EQ(read.index->head->mtime, 0xF0000000);  // not negative
    EXPECT_STREQ(read.index->head->next->pwd_frame, "");
    free_decoded(xdr_in_res_t, &read);
    EXPECT_EQ(read.index, nullptr);

    list.head = nullptr;
    EXPECT_EQ(encode(xdr_in_res_t, &result), word(1) + word(1) + word(77) + word(0));
}

TEST(XdrRecords, UnknownResultTypeCarriesAnErrorRecord)
{
    in_res_t result = {};
    result.res_type = static_cast<res_type_t>(19);
    result.err = {21, 2, nullptr};
    EXPECT_EQ(encode(xdr_in_res_t, &result), word(19) + word(21) + word(2) + text(""));
}

TEST(XdrRecords, ChunksOfEveryLengthComeBackWhole)
{
    for (u_int length : {0u, 1u, 4u, 262143u, 1048576u, 1048577u, 3000001u}) {
        std::string bytes(length, '\0');
        for (size_t i = 0; i < bytes.size(); i++)
            bytes[i] = static_cast<char>(i * 31 >> 3);
        in_res_t result = {};
        result.res_type = RES_FAX;
        result.fax = {length, bytes.data()};
        std::string wire = encode(xdr_in_res_t, &result);
        EXPECT_EQ(wire, word(4) + text(bytes)) << length;

        in_res_t read = {};
        u_int used = 0;
        ASSERT_TRUE(decode(xdr_in_res_t, &read, wire, &used)) << length;
        EXPECT_EQ(used, wire.size());
        EXPECT_EQ(std::string(read.fax.bytes, read.fax.length), bytes) << length;
        free_decoded(xdr_in_res_t, &read);
    }
}

// Cuts `bytes` at every length: no such prefix decodes, and all of what was decoded is freed, which the
// address sanitizer watches.
template <class Record> static void cut(bool_t (*routine)(XDR *, Record *) noexcept, const std::string &bytes)
{
    for (size_t length = 0; length <= bytes.size(); length++) {
        Record record = {};
        EXPECT_EQ(decode(routine, &record, bytes.substr(0, length)), length == bytes.size()) << length;
        free_decoded(routine, &record);
    }
}

TEST(XdrRecords, TruncatedRecordsAreRefusedAndFreed)
{
    std::string pw = word(1) + identity_fields("alice");
    cut(xdr_df_index_req_t, pw + text("1a2b") + word(1) + word(1) + word(100) + word(0));
    cut(xdr_client_deliver_req_t, pw + text("1a2b") + word(1) + text("everybody"));
    cut(xdr_client_ui_req_t, pw + text("a") + word(1) + word(2) + text("b") + word(0));
    cut(xdr_identity, pw);

    std::string fax = text("n") + text("s") + text("t") + text("p") + std::string(20, '\1');
    std::string node = word(1) + text("attr") + text("value");
    std::string entry = word(1) + text("key") + word(9) + node + node + word(0);
    std::string recipient = word(1) + text("bob") + text("Bob") + word(0);
    for (const std::string &result :
         {word(0) + word(1) + word(2) + text("rev"),
          word(1) + word(1) + word(5) + word(1) + fax + word(1) + fax + word(0), word(3) + word(1) + fax,
          word(4) + text("bytes"), word(7) + word(5) + recipient + recipient + word(0),
          word(9) + entry + entry + word(0), word(18) + word(1) + word(2) + text("m")})
        cut(xdr_in_res_t, result);
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
    struct {
        std::string bytes;
        const char *user;  // null: absent
    } rows[] = {
        {word(1) + identity_fields("alice"), "alice"},
        {identity_fields("alice"), "alice"},
        {word(1) + identity_fields("a"), "a"},
        {identity_fields("a"), "a"},
        {identity_fields("ab"), "ab"},
        {identity_fields("\xE9"), "\xE9"},
        {word(1) + identity_fields(""), ""},
        {identity_fields(""), ""},
        {word(1) + identity_fields(std::string(256, 'x')), nullptr},
        {word(0), nullptr},
    };
    std::string long_name(256, 'x');
    rows[8].user = long_name.c_str();
    for (const auto &row : rows) {
        pw_req_t *pw = nullptr;
        u_int used = 0;
        ASSERT_TRUE(decode(xdr_identity, &pw, row.bytes, &used)) << testing::PrintToString(row.bytes);
        EXPECT_EQ(used, row.bytes.size());
        ASSERT_EQ(pw != nullptr, row.user != nullptr);
        if (pw) {
            EXPECT_STREQ(pw->user, row.user);
            EXPECT_STREQ(pw->password, "pw");
            EXPECT_STREQ(pw->reserved_str, "r");
            EXPECT_EQ(pw->reserved_int, -7);
            EXPECT_EQ(pw->check_value, 5u);
            EXPECT_EQ(encode(xdr_identity, &pw), word(1) + identity_fields(row.user));
        }
        free_decoded(xdr_identity, &pw);
        EXPECT_EQ(pw, nullptr);
    }
    pw_req_t *absent = nullptr;
    EXPECT_EQ(encode(xdr_identity, &absent), word(0));
    cut(xdr_identity, identity_fields("alice"));
    cut(xdr_identity, identity_fields("a"));
}

static constexpr u_int CHAIN_LENGTH = 100000;

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
    std::string recipient = word(1) + text("") + text("") + word(1);
    std::string fax = word(1) + text("") + text("") + text("") + text("") + std::string(20, '\1');
    std::string node = word(1) + text("a") + text("");
    std::string entry = word(1) + text("k") + word(1) + word(0);
    struct {
        std::string head, record, tail;
    } rows[] = {{word(7) + word(5), recipient, word(0)},
                {word(1) + word(1) + word(5), fax, word(0)},
                {word(9) + word(1) + text("k") + word(1), node, word(0) + word(0)},
                {word(10), entry, word(0)}};
    for (const auto &row : rows) {
        std::string bytes = row.head;
        for (u_int i = 0; i < CHAIN_LENGTH; i++)
            bytes += row.record;
        bytes += row.tail;

        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, &attributes, walk_long_chain, &bytes), 0);
        void *failed = nullptr;
        pthread_join(thread, &failed);
        pthread_attr_destroy(&attributes);
        EXPECT_EQ(failed, nullptr) << row.record.size();
    }
}

}  // namespace faxtray
