#include "inbox/caller.h"

#include <gtest/gtest.h>

#include "support/capture.h"

namespace faxtray {

static void add_user(const char *name, const char *password, int check_value)
{
    av_list_ptr entry(av_new(name));
    if (password)
        av_put(entry.get(), "password", password);
    entry->check_value = check_value;
    User_list.users.update(std::move(entry));
}

TEST(Caller, IsWhomTheUserListKnows)
{
    add_user("John Smith", "5f3a", -7);
    add_user("open", "", 9);
    add_user("free", nullptr, 9);
    const std::string wide(65536, 'n');
    struct {
        const char *user, *password;
        int check_value;
        const char *answer;
    } rows[] = {
        {"john.smith", "5f3a", 0, "yes"},
        {"John Smith", "5f3a", -7, "yes"},
        {"John Smith", "5f3A", 0, "8: Trayd: Invalid password."},
        {"John Smith", nullptr, -7, "8: Trayd: Invalid password."},
        {"John Smith", "wrong", 5, "18: Trayd: Stale USER_LIST.info entry."},
        {"open", "whatever", 9, "yes"},
        {"free", nullptr, 0, "yes"},
        {"free", "", 8, "18: Trayd: Stale USER_LIST.info entry."},
        {"john.", "", 0, "11: Trayd: Invalid user name: [john.]."},
        {"", "", 0, "11: Trayd: Invalid user name: []."},
        {nullptr, "", 0, "11: Trayd: Invalid user name: [(null)]."},
    };
    capture_stderr quiet;
    trace_on trace;
    auto answer = [](const pw_req_t *request) {
        err_t error = {};
        if (valid_user_by_name(request, &error))
            return std::string("yes");
        EXPECT_EQ(error.sys_errno, 0);
        return std::to_string(error.code) + ": " + error.message;
    };
    auto request = [](const char *user, const char *password, int check_value) {
        return pw_req_t{const_cast<char *>(user), const_cast<char *>(password), nullptr, 0,
                        static_cast<u_int>(check_value)};
    };
    for (auto &row : rows) {
        pw_req_t asks = request(row.user, row.password, row.check_value);
        EXPECT_EQ(answer(&asks), row.answer) << (row.user ? row.user : "null");
    }
    EXPECT_EQ(answer(nullptr), "11: Trayd: Invalid user name: [(null)].");
    pw_req_t wide_name = request(wide.c_str(), "", 0);
    EXPECT_EQ(answer(&wide_name), ("11: Trayd: Invalid user name: [" + wide).substr(0, 4 + 2047));
    EXPECT_NE(trace.text().find("Trayd: Stale USER_LIST.info entry (req: 5, != our:-7)."), std::string::npos);
    User_list.users.clear();
}

}  // namespace faxtray
