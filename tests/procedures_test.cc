// The procedures, called as the dispatcher calls them, on a site of two users and one modem.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "daemon/delivery_procedures.h"
#include "daemon/replies.h"
#include "daemon/retrieval_procedures.h"
#include "daemon/status_procedures.h"
#include "inbox/inbox_index.h"
#include "inbox/inbox_lists.h"
#include "support/capture.h"
#include "util/crc.h"
#include "util/settings.h"

namespace faxtray {

namespace {

// "ann" has the password "secret" and two faxes, "bob" none; "ann" is the forwarder of the inbox
// "Front desk", where one fax lies.
class Procedures : public testing::Test {
protected:
    void SetUp() override
    {
        mkdir((dir / "incoming").c_str(), 0755);
        mkdir((dir / "ann").c_str(), 0755);
        users_file =
            dir.write("USER_LIST.info",
                      "[default]\n\tdelivery_dir_root = " + dir.path() +
                          "\n[ann]\n\tdelivery_method = faxtray\n\tpassword = secret\n\tfax_forwarding = no\n"
                          "\tforwarder = Front desk\n\tdelivery_dir = ann\n"
                          "[bob]\n\tdelivery_method = faxtray\n\tfax_forwarding = yes\n"
                          "\thuman_name = Bob\n\tdelivery_dir = bob\n");
        modems_file = dir.write("MODEMS.info", "[ttyS0]\n\tincoming_dir = " + (dir / "incoming") +
                                                   "\n\tincoming_gui = Front desk\n");
        user_info = users_file.data();
        modem_info = modems_file.data();
        Update_slop = 0;
        handle = passwd((dir / "incoming").c_str());
        add_fax("ann/one", 1000, "first");
        add_fax("ann/two", 2000, "the second");
        add_fax("incoming/unrouted", 3000, "unrouted");
    }
    void TearDown() override
    {
        dump_list(&users);
        dump_list(&incoming);
        user_info = modem_info = nullptr;
        Update_slop = 60;
        Regd_challenged = 0;
    }

    void add_fax(const char *name, time_t mtime, const char *content)
    {
        dir.write(name, content);
        set_mtime(dir / name, mtime);
    }

    // The ids of the faxes in ann's inbox, or with `df` in the incoming one, oldest first.
    std::vector<faxid_t> list(bool df = false)
    {
        index_req_t request = {&ann, 0, 1, 0, 0};
        df_index_req_t df_request = {&ann, handle.data(), 0, 1, 0, 0};
        const in_res_t *res =
            df ? get_df_index_1_svc(&df_request, nullptr) : get_index_1_svc(&request, nullptr);
        std::vector<faxid_t> ids;
        if (res->res_type != (df ? RES_DF_INDEX : RES_INDEX))
            ADD_FAILURE() << told(res);
        else
            for (const file_node_t *node = res->index->head; node; node = node->next)
                ids.push_back(node->faxid);
        return ids;
    }

    std::string read(faxid_t faxid, u_int size, u_int offset)
    {
        client_fax_req_t request = {&ann, faxid, size, offset};
        const in_res_t *res = get_fax_1_svc(&request, nullptr);
        return res->res_type == RES_FAX ? std::string(res->fax.bytes, res->fax.length) : told(res);
    }

    // "code/errno message" of an error, else the type.
    static std::string told(const in_res_t *res)
    {
        if (res->res_type != RES_ERROR)
            return "type " + std::to_string(res->res_type);
        return std::to_string(res->err.code) + "/" + std::to_string(res->err.sys_errno) + " " +
               res->err.message;
    }

    static pw_req_t caller(const char *name, const char *password)
    {
        static char empty[] = "";
        return {const_cast<char *>(name), const_cast<char *>(password), empty, 0, 0};
    }

    const temp_dir dir;
    std::string users_file, modems_file, handle;
    pw_req_t ann = caller("ann", "secret");
    pw_req_t bob = caller("bob", "");
};

}  // namespace

TEST_F(Procedures, ReadAFaxInChunksUpToItsEnd)
{
    const std::vector<faxid_t> ids = list();
    ASSERT_EQ(ids.size(), 2u);
    EXPECT_EQ(read(ids[1], 4, 0), "the ");
    ann = caller("ann", "wrong");  // asked for at the file's start only
    EXPECT_EQ(read(ids[1], 262144, 4), "second");
    EXPECT_EQ(read(ids[1], 262145, 10), "");
    EXPECT_EQ(read(ids[1], 0, 10), "");
    EXPECT_EQ(read(ids[1], 0, 9), "19/0 Trayd: Invalid read request size: 0.");
    EXPECT_EQ(read(ids[1], 262145, 9), "19/0 Trayd: Invalid read request size: 262145.");
    EXPECT_EQ(read(ids[1], 0xffffffff, 9), "19/0 Trayd: Invalid read request size: 4294967295.");
    EXPECT_EQ(read(ids[1], 4, 0), "8/0 Trayd: Invalid password.");
    EXPECT_EQ(read(7, 4, 1), "11/0 Trayd: Invalid fax id: 7");
    EXPECT_NE(get_user_node(&users, "ann")->last_get, 0);
    unlink((dir / "ann/two").c_str());
    EXPECT_EQ(read(ids[1], 4, 1),
              "19/2 Trayd: Can't open fax id: " + std::to_string(ids[1]) + ": No such file or directory");
}

TEST_F(Procedures, RemoveOneFaxAndNoOther)
{
    const std::vector<faxid_t> ids = list();
    const std::vector<faxid_t> unrouted = list(true);
    ASSERT_EQ(unrouted.size(), 1u);
    client_commit_req_t elsewhere = {&ann, unrouted[0]}, first = {&ann, ids[0]}, second = {&ann, ids[1]};
    EXPECT_EQ(told(commit_fax_1_svc(&elsewhere, nullptr)),
              "11/0 Trayd: Invalid fax id: " + std::to_string(unrouted[0]));
    EXPECT_EQ(commit_fax_1_svc(&first, nullptr)->res_type, RES_COMMIT_FAX);
    EXPECT_NE(access((dir / "ann/one").c_str(), F_OK), 0);
    EXPECT_EQ(list(), std::vector<faxid_t>{ids[1]});

    // A file that cannot be removed leaves the index all the same.
    unlink((dir / "ann/two").c_str());
    EXPECT_EQ(told(commit_fax_1_svc(&second, nullptr)), "19/2 Trayd: Can't remove committed file: [" +
                                                            (dir / "ann/two") +
                                                            "]: No such file or directory.");
    EXPECT_EQ(get_user_node(&users, "ann")->index->head, nullptr);

    df_commit_req_t df_request = {&ann, handle.data(), unrouted[0]};
    EXPECT_EQ(commit_df_fax_1_svc(&df_request, nullptr)->res_type, RES_COMMIT_DF_FAX);
    EXPECT_NE(access((dir / "incoming/unrouted").c_str(), F_OK), 0);
}

TEST_F(Procedures, CommitWhatWasShown)
{
    list();
    add_fax("ann/three", 3000, "not shown yet");
    EXPECT_EQ(commit_index_1_svc(&ann, nullptr)->res_type, RES_COMMIT_INDEX);
    EXPECT_NE(access((dir / "ann/two").c_str(), F_OK), 0);
    EXPECT_EQ(access((dir / "ann/three").c_str(), F_OK), 0);
    EXPECT_EQ(get_fax_count_1_svc(&ann, nullptr)->count, 1u);
}

TEST_F(Procedures, TellTheOldestReadableFax)
{
    list();
    unlink((dir / "ann/one").c_str());
    const in_res_t *res = get_fax_info_1_svc(&ann, nullptr);
    ASSERT_EQ(res->res_type, RES_FAX_INFO);
    ASSERT_NE(res->info, nullptr);
    EXPECT_STREQ(res->info->name, "two");
    EXPECT_EQ(get_fax_count_1_svc(&ann, nullptr)->count, 1u);

    res = get_fax_info_1_svc(&bob, nullptr);
    ASSERT_EQ(res->res_type, RES_FAX_INFO);
    EXPECT_EQ(res->info, nullptr);
}

TEST_F(Procedures, ServeForwardersInTheirInboxOnly)
{
    char other[] = "abc123", word[] = "Front desk", none[] = "";
    df_info_req_t request = {&ann, handle.data()};
    EXPECT_EQ(get_df_fax_count_1_svc(&request, nullptr)->count, 1u);
    EXPECT_STREQ(get_df_fax_info_1_svc(&request, nullptr)->info->name, "unrouted");
    EXPECT_EQ(commit_df_index_1_svc(&request, nullptr)->res_type, RES_COMMIT_DF_INDEX);
    request.inbox = other;
    EXPECT_EQ(told(get_df_fax_count_1_svc(&request, nullptr)),
              "12/0 Trayd: User \"ann\" is not DF for inbox: [abc123].");
    request.inbox = none;
    EXPECT_EQ(told(get_df_fax_count_1_svc(&request, nullptr)),
              "12/0 Trayd: User \"ann\" is not DF for inbox: [].");
    request.inbox = word;
    EXPECT_EQ(told(get_df_fax_info_1_svc(&request, nullptr)), "5/0 Trayd: Invalid inbox: [Front desk].");
    request.pw = &bob;
    EXPECT_EQ(told(commit_df_index_1_svc(&request, nullptr)),
              "12/0 Trayd: User \"bob\" is not designated forwarder.");

    trace_on trace;
    df_fax_req_t read_request = {&ann, handle.data(), list(true).front(), 3, 2};
    const in_res_t *res = get_df_fax_1_svc(&read_request, nullptr);
    ASSERT_EQ(res->res_type, RES_DF_FAX);
    EXPECT_EQ(std::string(res->fax.bytes, res->fax.length), "rou");
    EXPECT_NE(
        trace.text().find("get_df_fax_1_svc request for inbox \"" + handle + "\" from \"ann\" granted.\n"),
        std::string::npos);
}

TEST_F(Procedures, TellForwardersTheirInboxesAndRecipients)
{
    for (int i = 0; i < 2; i++) {
        const in_res_t *res = get_df_1_svc(&ann, nullptr);
        ASSERT_EQ(res->res_type, RES_DF);
        EXPECT_STREQ(av_getv(res->av, "forwarder_handle"), handle.c_str());
    }
    EXPECT_EQ(told(get_df_1_svc(&bob, nullptr)), "12/0 Trayd: User not designated forwarder: [bob].");

    client_ui_req_t request = {&ann, nullptr, 0, 0, nullptr, 0};
    const in_res_t *res = get_ui_1_svc(&request, nullptr);
    ASSERT_EQ(res->res_type, RES_UI);
    ASSERT_NE(res->ui.head, nullptr);
    EXPECT_STREQ(res->ui.head->label, "Bob");
    EXPECT_EQ(res->ui.head->next, nullptr);
    request.check_value = res->ui.check_value;
    EXPECT_NE(request.check_value, 0u);
    EXPECT_EQ(told(get_ui_1_svc(&request, nullptr)), "13/0 Trayd: List has not changed since last request.");
    request.pw = &bob;
    EXPECT_EQ(told(get_ui_1_svc(&request, nullptr)), "12/0 Trayd: User \"bob\" is not designated forwarder.");
}

TEST_F(Procedures, DeliverNothingInBackwardCompatibilityModeAndSayYes)
{
    client_deliver_req_t request = {nullptr, nullptr, 0, nullptr};
    EXPECT_EQ(told(deliver_fax_1_svc(&request, nullptr)), "11/0 Trayd: Invalid user name: [(null)].");
    Regd_challenged = 1;
    EXPECT_EQ(deliver_fax_1_svc(&request, nullptr)->res_type, RES_DELIVER);
}

TEST_F(Procedures, RefuseCallersWithoutANameOrWithAnOddOne)
{
    static const std::string long_name(65536, 'x');
    pw_req_t nameless = caller(nullptr, nullptr), odd = caller("\xe9\xff", ""),
             lengthy = caller(long_name.c_str(), "");
    pw_req_t empty = caller("", "");
    for (pw_req_t *pw : {static_cast<pw_req_t *>(nullptr), &nameless, &odd, &lengthy, &empty}) {
        const std::string name = pw && pw->user ? pw->user : "(null)";
        const std::string invalid = ("11/0 Trayd: Invalid user name: [" + name + "].").substr(0, 1000);
        index_req_t index = {pw, 0, 1, 0, 0};
        client_fax_req_t fax = {pw, 1, 1, 1};
        client_commit_req_t commit = {pw, 1};
        df_info_req_t info = {pw, handle.data()};
        df_fax_req_t df_fax = {pw, handle.data(), 1, 1, 1};
        client_ui_req_t ui = {pw, nullptr, 0, 0, nullptr, 0};
        EXPECT_EQ(told(get_index_1_svc(&index, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_fax_1_svc(&fax, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(commit_fax_1_svc(&commit, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_fax_count_1_svc(pw, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_df_1_svc(pw, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_ui_1_svc(&ui, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_df_fax_count_1_svc(&info, nullptr)).substr(0, 1000), invalid);
        EXPECT_EQ(told(get_df_fax_1_svc(&df_fax, nullptr)).substr(0, 1000),
                  ("12/0 Trayd: User \"" + name + "\" is not designated forwarder.").substr(0, 1000));
    }
}

TEST_F(Procedures, AnswerTheSameWhoeverAsks)
{
    for (int i = 0; i < 2; i++) {
        const in_res_t *res = trayd_rev_1_svc(nullptr, nullptr);
        EXPECT_EQ(res->res_type, RES_REV);
        EXPECT_EQ(res->rev.major, -1);
        EXPECT_EQ(res->rev.minor, -1);
        EXPECT_STREQ(res->rev.revision, "%Z%|%M%|%R%|0|%L%|%B%|%S%|%G%|%U%");
    }
    EXPECT_EQ(get_status_1_svc(nullptr, nullptr)->av, nullptr);
    EXPECT_EQ(trayd_shutdown_1_svc(nullptr, nullptr)->res_type, RES_SHUTDOWN);
}

TEST_F(Procedures, AnswerThatTheListsCannotBeLoaded)
{
    modems_file = dir / "none";
    modem_info = modems_file.data();
    capture_stderr err;
    trace_on trace;
    index_req_t request = {&ann, 0, 1, 0, 0};
    EXPECT_EQ(told(get_index_1_svc(&request, nullptr)), "21/0 Trayd: Can't update user info.");
    EXPECT_NE(trace.text().find("get_index_1_svc: update_lists failed.\n"), std::string::npos);
}

}  // namespace faxtray
