// Entries of the exception log on their way to the administrator, with a real registry and with one that
// hangs.
#include "deliver/admin_notice.h"

#include <gtest/gtest.h>

#include "deliver/node_queue.h"
#include "log/exception_log.h"
#include "registry/regd_client.h"
#include "support/capture.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "util/clock_text.h"

namespace faxtray {

// The exception log of this process, with notices, as long as this lives.
class logging {
public:
    explicit logging(const std::string &path)
    {
        elog_init("test", path.c_str(), 1);
        admin_notice_init();
        npurge();
        take_mail();
    }
    ~logging()
    {
        elog_set_notifier(nullptr);
        npurge();
    }
};

// Entries of these levels; what the administrator got, without the header.
static std::vector<std::string> notices_of(std::initializer_list<int> levels, const char *message = "lost")
{
    for (int level : levels)
        elog_writef("", "x.cc", 1, level, ELOG_FILE, "%s\n", message);
    std::vector<std::string> mails = take_mail();
    for (std::string &mail : mails)
        mail.erase(0, mail.find("Subject: "));
    return mails;
}

// Where it is told that there is no more to come for a while; -1 when it is not.
static long limit_note(const std::string &mail, time_t until)
{
    return static_cast<long>(mail.find(
        "been reached.\nFurther notification will be held until: " + std::string(cv_ctime(&until)) + "\n"));
}

TEST(AdminNotice, GoesByLevelAndDailyVolume)
{
    site s;
    const std::string admin = "[admin]\nemail_address = admin\nwhen_to_notify = fax_exception\n";
    s.write_users(admin + "admin_notify_level = warning\nadmin_exception_volume = 2\n");
    const running_registry registry(s);
    const logging on(s / "exception_log");

    EXPECT_EQ(notices_of({ELOG_NOTICE, 7, -1}).size(), 0u);
    std::vector<std::string> mails = notices_of({ELOG_WARNING, ELOG_FATAL, ELOG_ERROR});
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(limit_note(mails[0], nhead()), -1);
    EXPECT_NE(limit_note(mails[1], nhead()), -1);

    // A day later one of them counts no longer.
    const time_t now = time(nullptr), soon = now + 60;
    npurge();
    nenq(now);
    nenq(soon);
    mails = notices_of({ELOG_ERROR, ELOG_ERROR}, "a line of more than thirty characters");
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_EQ(mails[0].find("Subject: Ondrix: exception logged: a line of more than thirty cha\n\n"), 0u);
    EXPECT_NE(limit_note(mails[0], soon), -1);

    npurge();
    elog_init("test", "/dev/full", 1);
    mails = notices_of({ELOG_ERROR, ELOG_ERROR, ELOG_ERROR});
    EXPECT_EQ(mails.size(), 3u) << "takes no place";
    EXPECT_EQ(mails[0],
              "Subject: Ondrix: exception logged\n\nelog_writef: Error posting to exception log\n\n");
    elog_init("test", (s / "exception_log").c_str(), 1);

    s.write_users(admin + "admin_notify_level = error\nadmin_exception_volume = 0\n");
    mails = notices_of({ELOG_WARNING, ELOG_ERROR, ELOG_ERROR}, "two\nlines");
    ASSERT_EQ(mails.size(), 2u) << "no limit";
    EXPECT_EQ(mails[1].find("Subject: Ondrix: exception logged: two\n\n"), 0u) << "the first line";
    s.write_users(admin);
    EXPECT_EQ(notices_of({ELOG_FATAL}).size(), 0u) << "no level is none";
}

TEST(AdminNotice, ARegistryThatHangsCostsOneTimeOutARequest)
{
    site s;
    const logging on(s / "exception_log");
    const false_registry hung;
    regd_set_timeout({0, 100'000});

    capture_stderr err;
    for (int request = 1; request <= 2; request++) {
        EXPECT_EQ(notices_of({ELOG_ERROR, ELOG_ERROR, ELOG_ERROR}).size(), 0u);
        EXPECT_EQ(hung.count_clients(), 1) << "request " << request;
        regd_forget_timeout();
    }
    EXPECT_NE(err.text().find("ERROR:  elog_writef:  Could not get the admin record.\n"), std::string::npos);
    regd_set_timeout({25, 0});
}

}  // namespace faxtray
