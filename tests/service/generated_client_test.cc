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

// That replies are encoded as the protocol says, every scenario shows.
TEST(GeneratedClient, IsUnderstoodInEveryRequest)
{
    site s;
    s.write_users("[Cy]\ndelivery_file_format = as_received\n");
    std::string fax = s.add_fax(s.inbox("bea"), "one", 10);
    s.add_faxes(s.incoming(), 2);
    running_daemon daemon(s);
    client_ptr client(clnt_create("localhost", IN_PROG, IN_VERS, const_cast<char *>("tcp")));
    ASSERT_TRUE(client) << clnt_spcreateerror("");
    CLIENT *c = client.get();
    std::string handle = s.handle(), user = "bea", cy = "Cy", password = "2fc7b405";
    pw_req_t who = {chars(user), chars(password), empty, 0, 0};

    result(RES_REV, trayd_rev_1(c));
    const result index(RES_INDEX, get_index_1({&who, 0, 1, 0, 0}, c));
    const faxid_t one = index->index->head->faxid;
    const result chunk(RES_FAX, get_fax_1({&who, one, 1000, 4}, c));
    EXPECT_EQ(std::string(chunk->fax.fax_val, chunk->fax.fax_len), fax.substr(4));
    EXPECT_EQ(result(RES_FAX_INFO, get_fax_info_1(&who, c))->info->faxid, one);
    result(RES_COMMIT_FAX, commit_fax_1({&who, one}, c));
    result(RES_COMMIT_INDEX, commit_index_1(&who, c));
    EXPECT_EQ(result(RES_FAX_COUNT, get_fax_count_1(&who, c))->count, 0u);

    const result df_index(RES_DF_INDEX, get_df_index_1({&who, chars(handle), 0, 1, 0, 0}, c));
    const faxid_t id = df_index->index->head->faxid;
    result(RES_DELIVER, deliver_fax_1({&who, chars(handle), id, chars(cy)}, c));
    EXPECT_EQ(result(RES_DF_FAX_INFO, get_df_fax_info_1({&who, chars(handle)}, c))->info->faxid, id);
    EXPECT_GT(result(RES_DF_FAX, get_df_fax_1({&who, chars(handle), id, 100, 0}, c))->fax.fax_len, 10u);
    result(RES_COMMIT_DF_FAX, commit_df_fax_1({&who, chars(handle), id}, c));
    EXPECT_EQ(result(RES_DF_FAX_COUNT, get_df_fax_count_1({&who, chars(handle)}, c))->count, 1u);
    result(RES_COMMIT_DF_INDEX, commit_df_index_1({&who, chars(handle)}, c));
    result(RES_UI, get_ui_1({&who, empty, 0, 0, empty, 0}, c));
    EXPECT_STREQ(result(RES_DF, get_df_1(&who, c))->av->key, "Bea");
    result(RES_STATUS, get_status_1(&who, c));
    result(RES_SHUTDOWN, trayd_shutdown_1(&who, c));
}

}  // namespace faxtray
