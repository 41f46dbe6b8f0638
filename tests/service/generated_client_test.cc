// The client that rpcgen makes of interface/faxtray.x: its XDR code is not ours, so every record that it
// reads back checks our encoding. No header of ours that names the same records is included here.
#include <faxtray.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>

#include "support/daemon.h"
#include "util/owned.h"

namespace faxtray {

using client_ptr = std::unique_ptr<CLIENT, deleter<[](CLIENT *c) { clnt_destroy(c); }>>;

// Owns what a stub returned; the stub itself forgets it in its next call. `type` is -1 when no result came.
struct result {
    explicit result(const in_res_t *r)
        : record(r ? *r : in_res_t{}), type(r ? static_cast<int>(r->res_type) : -1)
    {
    }
    ~result() { xdr_free(reinterpret_cast<xdrproc_t>(xdr_in_res_t), reinterpret_cast<char *>(&record)); }
    result(const result &) = delete;
    result &operator=(const result &) = delete;
    const decltype(in_res_t::in_res_t_u) *operator->() const { return &record.in_res_t_u; }

    in_res_t record;
    int type;
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

    result rev(trayd_rev_1(c));
    ASSERT_EQ(rev.type, RES_REV);
    EXPECT_EQ(rev->rev.major, -1);
    EXPECT_STREQ(rev->rev.revision, "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%");

    result index(get_index_1({&who, 0, 1, 0, 0}, c));
    ASSERT_EQ(index.type, RES_INDEX);
    const file_node_t *first = index->index->head;
    ASSERT_TRUE(first && first->next && first->next->next && !first->next->next->next);
    EXPECT_EQ(std::string(first->name) + "," + first->sender_fax + "," + first->subaddress + "," +
                  first->pwd_frame,
              "one,123,45,Unknown");
    EXPECT_EQ(first->pages, 6);
    EXPECT_EQ(first->is_fax, 1);
    EXPECT_EQ(first->size, fax.size());
    struct stat st = {};
    ASSERT_EQ(stat((s.inbox("bea") + "/one").c_str(), &st), 0);
    EXPECT_EQ(first->mtime, st.st_mtime);

    result info(get_fax_info_1(&who, c));
    ASSERT_EQ(info.type, RES_FAX_INFO);
    EXPECT_EQ(info->info->faxid, first->faxid);
    result chunk(get_fax_1({&who, first->faxid, 1000, 4}, c));
    ASSERT_EQ(chunk.type, RES_FAX);
    EXPECT_EQ(std::string(chunk->fax.fax_val, chunk->fax.fax_len), fax.substr(4));
    EXPECT_EQ(result(commit_fax_1({&who, first->faxid}, c)).type, RES_COMMIT_FAX);
    EXPECT_EQ(result(commit_index_1(&who, c)).type, RES_COMMIT_INDEX);
    EXPECT_EQ(result(get_fax_count_1(&who, c))->count, 0u);
    EXPECT_EQ(result(get_fax_info_1(&who, c))->info, nullptr);

    result forwarder(get_df_1(&who, c));
    ASSERT_EQ(forwarder.type, RES_DF);
    EXPECT_STREQ(forwarder->av->key, "Bea");
    EXPECT_TRUE(forwarder->av->nodes);

    result recipients(get_ui_1({&who, empty, 0, 0, empty, 0}, c));
    ASSERT_EQ(recipients.type, RES_UI);
    std::string names;
    for (const ui_entry_t *entry = recipients->ui.head; entry; entry = entry->next)
        names += std::string(entry->name) + "=" + entry->label + (entry->flag ? "*;" : ";");
    EXPECT_EQ(names, "Al Smith=Al;Bea=Beatrice;team=The Team*;");

    result df_index(get_df_index_1({&who, chars(handle), 0, 1, 0, 0}, c));
    ASSERT_EQ(df_index.type, RES_DF_INDEX);
    faxid_t id = df_index->index->head->faxid;
    EXPECT_EQ(result(get_df_fax_info_1({&who, chars(handle)}, c)).type, RES_DF_FAX_INFO);
    EXPECT_EQ(result(get_df_fax_count_1({&who, chars(handle)}, c))->count, 2u);
    EXPECT_GT(result(get_df_fax_1({&who, chars(handle), id, 100, 0}, c))->fax.fax_len, 10u);
    EXPECT_EQ(result(commit_df_fax_1({&who, chars(handle), id}, c)).type, RES_COMMIT_DF_FAX);
    EXPECT_EQ(result(commit_df_index_1({&who, chars(handle)}, c)).type, RES_COMMIT_DF_INDEX);

    result status(get_status_1(&who, c));
    ASSERT_EQ(status.type, RES_STATUS);
    EXPECT_EQ(status->av, nullptr);
    EXPECT_EQ(result(trayd_shutdown_1(&who, c)).type, RES_SHUTDOWN);

    result refused(get_fax_1({&who, 4711, 1, 0}, c));
    ASSERT_EQ(refused.type, RES_ERROR);
    EXPECT_EQ(refused->err.code, 11);
    EXPECT_STREQ(refused->err.message, "Trayd: Invalid fax id: 4711");
}

}  // namespace faxtray
