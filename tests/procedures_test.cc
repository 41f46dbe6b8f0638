// What procedures do that clients cannot bring about over the network.
#include <gtest/gtest.h>
#include <unistd.h>

#include "daemon/retrieval_procedures.h"
#include "inbox/inbox_lists.h"
#include "support/temp_dir.h"
#include "util/settings.h"

namespace faxtray {

TEST(Procedures, TellTheOldestFaxThatCanBeRead)
{
    const temp_dir dir;
    std::string users_file =
                    dir.write("USER_LIST.info", "[default]\ndelivery_dir_root = " + dir.path() + "\n[ann]\n"),
                modems_file = dir.write("MODEMS.info", "[default]\n");
    user_info = users_file.data();
    modem_info = modems_file.data();
    char name[] = "ann", empty[] = "";
    pw_req_t ann = {name, empty, empty, 0, 0};
    EXPECT_EQ(get_fax_info_1_svc(&ann, nullptr)->info, nullptr);  // makes the inbox
    for (const char *file : {"ann/1", "ann/2", "ann/3", "ann/4"})
        set_mtime(dir.write(file, file), 1000 + file[4]);
    EXPECT_EQ(get_fax_count_1_svc(&ann, nullptr)->count, 4u);

    // No scan comes between: what vanished leaves the list as it is met.
    for (const char *file : {"ann/1", "ann/2", "ann/3"})
        unlink((dir / file).c_str());
    const in_res_t *res = get_fax_info_1_svc(&ann, nullptr);
    ASSERT_EQ(res->res_type, RES_FAX_INFO);
    ASSERT_NE(res->info, nullptr);
    EXPECT_STREQ(res->info->name, "4");
    EXPECT_EQ(get_fax_count_1_svc(&ann, nullptr)->count, 1u);
    dump_list(&users);
    user_info = modem_info = nullptr;
}

}  // namespace faxtray
