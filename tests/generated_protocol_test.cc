// Our XDR routines against those that rpcgen makes from interface/faxtray.x: records filled alike have
// the same bytes, we read what the generated routines write, and refuse it cut at any length.
#include <gtest/gtest.h>

#include <type_traits>

#include "protocol/xdr_records.h"
#include "support/xdr_memory.h"

#include "faxtray.h"  // generated; last, since it defines names of ours as macros

namespace faxtray {

static char text_a[] = "alice", text_b[] = "d1f3", text_c[] = "", text_d[] = "latin-1: \xE9\xFC";

// What a pointer of our record, or of the generated one, points to.
template <class Pointer> using record_of = std::remove_pointer_t<std::remove_reference_t<Pointer>>;

// Fillers work on our record and on the generated one alike, since the fields have the same names.
static auto fill_pw = [](auto &pw) {
    pw.user = text_a, pw.password = text_b, pw.reserved_str = text_c;
    pw.reserved_int = -7, pw.check_value = 0xFEDCBA98;
};

// Makes `pointer` point to a zeroed record that `fill` then fills.
static auto with_record = [](auto &pointer, auto fill) {
    static record_of<decltype(pointer)> record;
    record = {};
    fill(record);
    pointer = &record;
};
static auto with_pw = [](auto &pointer) { with_record(pointer, fill_pw); };

// Whichever fields the request has.
static auto fill_request = [](auto &r) {
    if constexpr (requires { r.pw; })
        with_pw(r.pw);
    if constexpr (requires { r.inbox; })
        r.inbox = text_b;
    if constexpr (requires { r.faxid; })
        r.faxid = 1;
    if constexpr (requires { r.how; })
        r.how = 2, r.count = -3;
    if constexpr (requires { r.check_value; })
        r.check_value = 4;
    if constexpr (requires { r.offset; })
        r.size = 5, r.offset = 6;
    if constexpr (requires { r.recipients; })
        r.recipients = text_d;
    if constexpr (requires { r.ui_str1; })
        r.ui_str1 = text_a, r.ui_int1 = 7, r.ui_int2 = 8, r.ui_str2 = text_d;
};

static auto fill_file = [](auto &info) {
    info.name = text_a, info.sender_fax = text_b, info.subaddress = text_c, info.pwd_frame = text_d;
    info.pages = -1, info.is_fax = 1, info.faxid = 0x81020304, info.size = 0xFFFFFFFE;
    info.mtime = 0x90ABCDEF;  // after 2038
};

static auto fill_index = [](auto &list) {
    static record_of<decltype(list.head)> first, second;
    fill_file(first);
    fill_file(second);
    second.name = text_d;
    first.next = &second;
    list.check_value = 11;
    list.head = &first;
};

static auto fill_av = [](auto &list) {
    static record_of<decltype(list.nodes)> first, second;
    static record_of<decltype(list.next)> other;
    first = {text_a, text_b, &second};
    second = {text_c, text_d, nullptr};
    other.key = text_d;
    list.key = text_a;
    list.check_value = static_cast<decltype(list.check_value)>(-5);
    list.nodes = &first;
    list.next = &other;
};

static auto fill_ui = [](auto &list) {
    static record_of<decltype(list.head)> first, second;
    first = {text_a, text_b, 1, &second};
    second = {text_c, text_d, 0, nullptr};
    list.check_value = 12;
    list.head = &first;
};

static auto fill_fax = [](auto &fax) {
    if constexpr (requires { fax.fax_val; })
        fax.fax_len = 4, fax.fax_val = text_b;
    else
        fax.length = 4, fax.bytes = text_b;
};

template <class Record, class Generated, class Fill>
static void compare(bool_t (*ours)(XDR *, Record *) noexcept, bool_t (*theirs)(XDR *, Generated *), Fill fill)
{
    Record record = {}, read = {};
    Generated generated = {};
    fill(record);
    fill(generated);
    std::string bytes = encode(theirs, &generated);
    EXPECT_EQ(encode(ours, &record), bytes);
    EXPECT_TRUE(decode(ours, &read, bytes));
    EXPECT_EQ(encode(ours, &read), bytes);
    free_decoded(ours, &read);
    refuse_cut(ours, bytes);
}

TEST(GeneratedProtocol, RequestsHaveTheSameBytes)
{
    compare(xdr_identity, ::xdr_pw_ptr, with_pw);
    compare(xdr_index_req_t, ::xdr_index_req_t, fill_request);
    compare(xdr_df_index_req_t, ::xdr_df_index_req_t, fill_request);
    compare(xdr_df_info_req_t, ::xdr_df_info_req_t, fill_request);
    compare(xdr_client_fax_req_t, ::xdr_client_fax_req_t, fill_request);
    compare(xdr_df_fax_req_t, ::xdr_df_fax_req_t, fill_request);
    compare(xdr_client_commit_req_t, ::xdr_client_commit_req_t, fill_request);
    compare(xdr_df_commit_req_t, ::xdr_df_commit_req_t, fill_request);
    compare(xdr_client_deliver_req_t, ::xdr_client_deliver_req_t, fill_request);
    compare(xdr_client_ui_req_t, ::xdr_client_ui_req_t, fill_request);
}

// Compares results of those types; `fill` sets the arm.
template <class Fill> static void compare_results(std::initializer_list<int> types, Fill fill)
{
    for (int type : types)
        compare(xdr_in_res_t, ::xdr_in_res_t, [&](auto &result) {
            result.res_type = static_cast<decltype(result.res_type)>(type);
            if constexpr (requires { result.in_res_t_u; })
                fill(result.in_res_t_u);
            else
                fill(result);
        });
}

TEST(GeneratedProtocol, ResultsHaveTheSameBytes)
{
    auto nothing = [](auto &) {};
    compare_results({0},
                    [](auto &arm) { arm.rev.major = -1, arm.rev.minor = -2, arm.rev.revision = text_a; });
    compare_results({1, 12}, [](auto &arm) { with_record(arm.index, fill_index); });
    compare_results({1, 12}, [&](auto &arm) { with_record(arm.index, nothing); });
    compare_results({2, 5, 6, 11, 15, 17}, [](auto &arm) { arm.err.code = 99; });
    compare_results({3, 13}, [](auto &arm) { with_record(arm.info, fill_file); });
    compare_results({3, 13, 9, 10}, nothing);
    compare_results({4, 16}, [](auto &arm) { fill_fax(arm.fax); });
    compare_results({7}, [](auto &arm) { fill_ui(arm.ui); });
    compare_results({8, 14}, [](auto &arm) { arm.count = 0x80000001; });
    compare_results({9, 10}, [](auto &arm) { with_record(arm.av, fill_av); });
    compare_results({18, 19, -1},
                    [](auto &arm) { arm.err.code = 21, arm.err.sys_errno = 2, arm.err.message = text_d; });
}

}  // namespace faxtray
