#include "inbox/caller.h"

#include <gtest/gtest.h>

#include "config/av_list.h"
#include "support/capture.h"

namespace faxtray {

TEST(Caller, IsWhomTheUserListKnows)
{
    const struct {
        const char *name, *password;
        int check_value;
    } known[] = {{"John Smith", "5f3a", -7}, {"open", "", 9}, {"free", nullptr, 9}};
    for (const auto &user : known) {
        av_list_ptr entry(av_new(user.name));
        if (user.password)
            av_put(entry.get(), "password", user.password);
        entry->check_value = user.check_value;
        User_list.users.update(std::move(entry));
    }
    const std::string wide(65536, 'n');
    const struct {
        const char *user, *password;
        int check_value;
        std::string answer;
    } rows[] = {
        {"john.smith", "5f3a", -7, "0: "},
        {"John Smith", "5f3A", 0, "8: Trayd: Invalid password."},
        {"John Smith", "5f3", 0, "8: Trayd: Invalid password."},
        {"John Smith", nullptr, -7, "8: Trayd: Invalid password."},
        {"John Smith", "wrong", 5, "18: Trayd: Stale USER_LIST.info entry."},
        {"open", "whatever", 9, "0: "},
        {"free", nullptr, 0, "0: "},
        {"free", "", 8, "18: Trayd: Stale USER_LIST.info entry."},
        {"john.", "", 0, "11: Trayd: Invalid user name: [john.]."},
        {"", "", 0, "11: Trayd: Invalid user name: []."},
        {nullptr, "", 0, "11: Trayd: Invalid user name: [(null)]."},
        {wide.c_str(), "", 0, ("11: Trayd: Invalid user name: [" + wide).substr(0, 4 + 2047)},
    };
    capture_stderr log;
    for (auto &row : rows) {
        pw_req_t asks = {const_cast<char *>(row.user), const_cast<char *>(row.password), nullptr, 0,
                         static_cast<u_int>(row.check_value)};
        err_t error = {};
        EXPECT_EQ(valid_user_by_name(&asks, &error), row.answer == "0: ");
        EXPECT_EQ(std::to_string(error.code) + ": " + (error.message ? error.message : ""), row.answer);
    }
    EXPECT_EQ(log.text(), "");  // a stranger costs no line, whatever the name
    EXPECT_FALSE(valid_user_by_name(nullptr, nullptr));
    User_list.users.clear();
}

}  // namespace faxtray
