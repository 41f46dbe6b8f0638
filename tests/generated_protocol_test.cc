// Our XDR routines against those that rpcgen makes from interface/faxtray.x: records filled alike have
// the same bytes, and we read what the generated routines write.
#include <gtest/gtest.h>

#include <type_traits>

#include "protocol/xdr_records.h"
#include "support/xdr_memory.h"

#include "faxtray.h"  // generated; last, since it defines names of ours as macros

namespace faxtray {

static char text_a[] = "alice", text_b[] = "d1f3", text_c[] = "", text_d[] = "latin-1: \xE9\xFC";

template <class Record> using record_of = std::remove_pointer_t<Record>;

// Fillers work on our record and on the generated one alike, since the fields have the same names.
static auto fill_pw = [](auto &pw) {
    pw.user = text_a;
    pw.password = text_b;
    pw.reserved_str = text_c;
    pw.reserved_int = -7;
    pw.check_value = 0xFEDCBA98;
};

static auto set_pw = [](auto &request) {
    static record_of<decltype(request.pw)> pw;
    fill_pw(pw);
    request.pw = &pw;
};

static auto fill_file = [](auto &info) {
    info.name = text_a;
    info.sender_fax = text_b;
    info.subaddress = text_c;
    info.pwd_frame = text_d;
    info.pages = -1;
    info.is_fax = 1;
    info.faxid = 0x81020304;
    info.size = 0xFFFFFFFE;
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

template <auto Ours, auto Theirs, class Record, class Generated, class Fill>
static void compare(Record ours, Generated theirs, Fill fill)
{
    fill(ours);
    fill(theirs);
    std::string bytes = encode(Theirs, &theirs);
    EXPECT_EQ(encode(Ours, &ours), bytes);

    Record read = {};
    EXPECT_TRUE(decode(Ours, &read, bytes));
    EXPECT_EQ(encode(Ours, &read), bytes);
    free_decoded(Ours, &read);
}

TEST(GeneratedProtocol, RequestsHaveTheSameBytes)
{
    compare<xdr_pw_req_t, ::xdr_pw_req_t>(pw_req_t{}, ::pw_req_t{}, fill_pw);
    compare<xdr_index_req_t, ::xdr_index_req_t>(index_req_t{}, ::index_req_t{}, [](auto &r) {
        set_pw(r);
        r.faxid = 1, r.how = 2, r.count = -3, r.check_value = 4;
    });
    compare<xdr_df_index_req_t, ::xdr_df_index_req_t>(df_index_req_t{}, ::df_index_req_t{}, [](auto &r) {
        set_pw(r);
        r.inbox = text_b, r.faxid = 1, r.how = 2, r.count = -3, r.check_value = 4;
    });
    compare<xdr_df_info_req_t, ::xdr_df_info_req_t>(df_info_req_t{}, ::df_info_req_t{},
                                                    [](auto &r) { r.inbox = text_b; });
    compare<xdr_client_fax_req_t, ::xdr_client_fax_req_t>(client_fax_req_t{}, ::client_fax_req_t{},
                                                          [](auto &r) {
                                                              set_pw(r);
                                                              r.faxid = 1, r.size = 2, r.offset = 3;
                                                          });
    compare<xdr_df_fax_req_t, ::xdr_df_fax_req_t>(df_fax_req_t{}, ::df_fax_req_t{}, [](auto &r) {
        set_pw(r);
        r.inbox = text_b, r.faxid = 1, r.size = 2, r.offset = 3;
    });
    compare<xdr_client_commit_req_t, ::xdr_client_commit_req_t>(client_commit_req_t{},
                                                                ::client_commit_req_t{}, [](auto &r) {
                                                                    set_pw(r);
                                                                    r.faxid = 1;
                                                                });
    compare<xdr_df_commit_req_t, ::xdr_df_commit_req_t>(df_commit_req_t{}, ::df_commit_req_t{}, [](auto &r) {
        set_pw(r);
        r.inbox = text_b, r.faxid = 1;
    });
    compare<xdr_client_deliver_req_t, ::xdr_client_deliver_req_t>(
        client_deliver_req_t{}, ::client_deliver_req_t{}, [](auto &r) {
            set_pw(r);
            r.inbox = text_b, r.faxid = 1, r.recipients = text_d;
        });
    compare<xdr_client_ui_req_t, ::xdr_client_ui_req_t>(client_ui_req_t{}, ::client_ui_req_t{}, [](auto &r) {
        set_pw(r);
        r.ui_str1 = text_a, r.ui_int1 = 1, r.ui_int2 = 2, r.ui_str2 = text_d, r.check_value = 3;
    });
    compare<xdr_identity, ::xdr_pw_ptr>(static_cast<pw_req_t *>(nullptr), ::pw_ptr{}, [](auto &pw) {
        static record_of<std::remove_reference_t<decltype(pw)>> record;
        fill_pw(record);
        pw = &record;
    });
}

// Compares results of one type; `fill` sets the arm.
template <class Fill> static void compare_results(int type, Fill fill)
{
    compare<xdr_in_res_t, ::xdr_in_res_t>(in_res_t{}, ::in_res_t{}, [&](auto &result) {
        result.res_type = static_cast<decltype(result.res_type)>(type);
        if constexpr (requires { result.in_res_t_u; })
            fill(result.in_res_t_u);
        else
            fill(result);
    });
}

TEST(GeneratedProtocol, ResultsHaveTheSameBytes)
{
    compare_results(0, [](auto &arm) { arm.rev.major = -1, arm.rev.minor = -2, arm.rev.revision = text_a; });
    for (int index : {1, 12}) {
        compare_results(index, [](auto &arm) {
            static record_of<decltype(arm.index)> list;
            fill_index(list);
            arm.index = &list;
        });
        compare_results(index, [](auto &arm) {
            static record_of<decltype(arm.index)> empty;
            arm.index = &empty;
        });
    }
    for (int nothing : {2, 5, 6, 11, 15, 17})
        compare_results(nothing, [](auto &arm) { arm.err.code = 99; });
    for (int info : {3, 13}) {
        compare_results(info, [](auto &arm) {
            static record_of<decltype(arm.info)> fax;
            fill_file(fax);
            arm.info = &fax;
        });
        compare_results(info, [](auto &arm) { arm.info = nullptr; });
    }
    for (int chunk : {4, 16}) {
        compare_results(chunk, [](auto &arm) {
            static char bytes[] = {'\x00', '\xFF', '\x0A'};
            if constexpr (requires { arm.fax.fax_val; })
                arm.fax.fax_len = 3, arm.fax.fax_val = bytes;
            else
                arm.fax.length = 3, arm.fax.bytes = bytes;
        });
    }
    compare_results(7, [](auto &arm) { fill_ui(arm.ui); });
    for (int count : {8, 14})
        compare_results(count, [](auto &arm) { arm.count = 0x80000001; });
    for (int list : {9, 10}) {
        compare_results(list, [](auto &arm) {
            static record_of<decltype(arm.av)> entry;
            fill_av(entry);
            arm.av = &entry;
        });
        compare_results(list, [](auto &arm) { arm.av = nullptr; });
    }
    for (int error : {18, 19, -1})
        compare_results(
            error, [](auto &arm) { arm.err.code = 21, arm.err.sys_errno = 2, arm.err.message = text_d; });
}

}  // namespace faxtray
