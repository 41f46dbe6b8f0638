// Our XDR routines against those that rpcgen makes from interface/faxtray.x: both read the same bytes and
// write them again, and ours refuse them cut at any length.
#include <gtest/gtest.h>

#include "protocol/xdr_records.h"
#include "support/wire.h"
#include "support/xdr_memory.h"

#include "faxtray.h"  // generated; last, since it defines names of ours as macros

namespace faxtray {

// The records have the same fields in the same places, so that each routine also writes the other's record.
template <class Record, class Generated> static void compare(bool_t (*ours)(XDR *, Record *) noexcept,
                                                             bool_t (*theirs)(XDR *, Generated *),
                                                             const std::string &bytes)
{
    static_assert(sizeof(Record) == sizeof(Generated));
    SCOPED_TRACE(testing::PrintToString(bytes));
    Record read = {};
    Generated generated = {};
    EXPECT_TRUE(decode(ours, &read, bytes) && decode(theirs, &generated, bytes));
    EXPECT_EQ(encode(ours, &read), bytes);
    EXPECT_EQ(encode(ours, reinterpret_cast<Record *>(&generated)), bytes);
    EXPECT_EQ(encode(theirs, reinterpret_cast<Generated *>(&read)), bytes);
    free_decoded(ours, &read);
    free_decoded(theirs, &generated);
    refuse_cut(ours, bytes);
}

TEST(GeneratedProtocol, RequestsHaveTheSameBytes)
{
    const std::string pw = identity("alice", "d1f3", 0xFEDCBA98), inbox = pw + text("c3"),
                      list = word(1) + word(2) + word(0xFFFFFFFD) + word(4), odd = text("latin-1: \xE9\xFC");
    compare(xdr_identity, ::xdr_pw_ptr, pw);
    compare(xdr_index_req_t, ::xdr_index_req_t, pw + list);
    compare(xdr_df_index_req_t, ::xdr_df_index_req_t, inbox + list);
    compare(xdr_df_info_req_t, ::xdr_df_info_req_t, inbox);
    compare(xdr_client_fax_req_t, ::xdr_client_fax_req_t, pw + word(1) + word(5) + word(0xFFFFFFFE));
    compare(xdr_df_fax_req_t, ::xdr_df_fax_req_t, inbox + word(1) + word(5) + word(6));
    compare(xdr_client_commit_req_t, ::xdr_client_commit_req_t, pw + word(0x80000001));
    compare(xdr_df_commit_req_t, ::xdr_df_commit_req_t, inbox + word(1));
    compare(xdr_client_deliver_req_t, ::xdr_client_deliver_req_t, inbox + word(1) + odd);
    compare(xdr_client_ui_req_t, ::xdr_client_ui_req_t, pw + odd + word(7) + word(8) + text("") + word(4));
}

TEST(GeneratedProtocol, ResultsHaveTheSameBytes)
{
    const std::string yes = word(1), no = word(0), odd = text("latin-1: \xE9\xFC"), empty = text(""),
                      fax = odd + text("+49 30") + empty + text("4:5") + word(0xFFFFFFFF) + word(1) +
                            word(0x81020304) + word(0xFFFFFFFE) + word(0x90ABCDEF),  // after 2038
        pair = yes + text("key") + odd, av = yes + text("Bea") + word(5);
    const struct {
        std::vector<int> types;
        std::string arm;
    } rows[] = {
        {{0}, word(0xFFFFFFFF) + word(2) + odd},
        {{1, 12}, yes + word(11) + yes + fax + yes + fax + no},
        {{1, 12}, yes + word(0) + no},
        {{2, 5, 6, 11, 15, 17}, ""},
        {{3, 13}, yes + fax},
        {{3, 13, 9, 10}, no},
        {{4, 16}, text("d1f3s")},
        {{7}, word(12) + pair + word(1) + yes + empty + odd + word(0) + no},
        {{8, 14}, word(0x80000001)},
        {{9, 10}, av + pair + pair + no + av + no + no},
        {{18, 19, -1}, word(21) + word(2) + odd},
    };
    for (const auto &row : rows)
        for (int type : row.types)
            compare(xdr_in_res_t, ::xdr_in_res_t, word(static_cast<uint32_t>(type)) + row.arm);
    file_info_t info = {};
    EXPECT_TRUE(decode(xdr_file_info_t, &info, fax));
    EXPECT_EQ(info.mtime, 0x90ABCDEF);
    free_decoded(xdr_file_info_t, &info);
}

}  // namespace faxtray
