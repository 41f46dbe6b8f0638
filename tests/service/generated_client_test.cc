// The client that rpcgen makes of interface/faxtray.x: its XDR code is not ours, so every record that it
// reads back checks our encoding. No header of ours that names the same records is included here.
#include <faxtray.h>
#include <gtest/gtest.h>

#include <memory>

#include "support/daemon.h"
#include "util/owned.h"

namespace faxtray {

using client_ptr = std::unique_ptr<CLIENT, deleter<[](CLIENT *c) { clnt_destroy(c); }>>;

// Owns what a stub returned, which has to be of that type; the stub itself forgets it in its next call.
struct result {
    result(res_type_t type, const in_res_t *r) : record(r ? *r : in_res_t{})
    {
        EXPECT_TRUE(r && r->res_type == type) << "no result of type " << type;
    }
    ~result() { xdr_free(reinterpret_cast<xdrproc_t>(xdr_in_res_t), reinterpret_cast<char *>(&record)); }
    result(const result &) = delete;
    result &operator=(const result &) = delete;
    const decltype(in_res_t::in_res_t_u) *operator->() const { return &record.in_res_t_u; }

    in_res_t record;
};

static char empty[] = "";

static char *chars(const std::string &text)
{
    return const_cast<char *>(text.c_str());
}

TEST(GeneratedClient, ReadsEveryRecordAsWritten)
{
    site s;
    std::string fax =
        s.add(s.inbox("bea"), "one", fax_bytes("SENDER_FAX#:123\nT30_SUB_FRAME:45\n#PAGES:6\n", "data"));
    s.add_faxes(s.inbox("bea"), 2);
    s.add_faxes(s.incoming(), 2);
    running_daemon daemon(s);
    client_ptr client(clnt_create("localhost", IN_PROG, IN_VERS, const_cast<char *>("tcp")));
    ASSERT_TRUE(client) << clnt_spcreateerror("");
    CLIENT *c = client.get();
    std::string handle = s.handle(), user = "bea", password = "2fc7b405";
    pw_req_t who = {chars(user), chars(password), empty, 0, 0};

    const result rev(RES_REV, trayd_rev_1(c));
    EXPECT_EQ(rev->rev.major, -1);
    EXPECT_STREQ(rev->rev.revision, "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%");

    const result index(RES_INDEX, get_index_1({&who, 0, 1, 0, 0}, c));
    const file_node_t *first = index->index->head;
    ASSERT_TRUE(first && first->next && first->next->next && !first->next->next->next);
    EXPECT_EQ(std::string(first->name) + "," + first->sender_fax + "," + first->subaddress + "," +
                  first->pwd_frame,
              "one,123,45,Unknown");
    EXPECT_EQ(first->pages, 6);
    EXPECT_EQ(first->size, fax.size());

    const result chunk(RES_FAX, get_fax_1({&who, first->faxid, 1000, 4}, c));
    EXPECT_EQ(std::string(chunk->fax.fax_val, chunk->fax.fax_len), fax.substr(4));
    EXPECT_EQ(result(RES_FAX_INFO, get_fax_info_1(&who, c))->info->faxid, first->faxid);
    result(RES_COMMIT_FAX, commit_fax_1({&who, first->faxid}, c));
    result(RES_COMMIT_INDEX, commit_index_1(&who, c));
    EXPECT_EQ(result(RES_FAX_COUNT, get_fax_count_1(&who, c))->count, 0u);
    EXPECT_EQ(result(RES_FAX_INFO, get_fax_info_1(&who, c))->info, nullptr);

    const result df_index(RES_DF_INDEX, get_df_index_1({&who, chars(handle), 0, 1, 0, 0}, c));
    const faxid_t id = df_index->index->head->faxid;
    EXPECT_EQ(result(RES_DF_FAX_INFO, get_df_fax_info_1({&who, chars(handle)}, c))->info->faxid, id);
    EXPECT_GT(result(RES_DF_FAX, get_df_fax_1({&who, chars(handle), id, 100, 0}, c))->fax.fax_len, 10u);
    result(RES_COMMIT_DF_FAX, commit_df_fax_1({&who, chars(handle), id}, c));
    EXPECT_EQ(result(RES_DF_FAX_COUNT, get_df_fax_count_1({&who, chars(handle)}, c))->count, 1u);
    result(RES_COMMIT_DF_INDEX, commit_df_index_1({&who, chars(handle)}, c));

    std::string names;
    const result recipients(RES_UI, get_ui_1({&who, empty, 0, 0, empty, 0}, c));
    for (const ui_entry_t *entry = recipients->ui.head; entry; entry = entry->next)
        names += std::string(entry->name) + "=" + entry->label + (entry->flag ? "*;" : ";");
    EXPECT_EQ(names, "Al Smith=Al;Bea=Beatrice;team=The Team*;");
    EXPECT_STREQ(result(RES_DF, get_df_1(&who, c))->av->key, "Bea");
    EXPECT_EQ(result(RES_STATUS, get_status_1(&who, c))->av, nullptr);
    result(RES_SHUTDOWN, trayd_shutdown_1(&who, c));
}

}  // namespace faxtray
