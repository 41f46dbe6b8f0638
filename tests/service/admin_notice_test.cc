// The administrator's notices as days go by; that they go by level and volume, scenarios show.
#include "deliver/admin_notice.h"

#include <gtest/gtest.h>

#include "deliver/node_queue.h"
#include "log/exception_log.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "util/clock_text.h"

namespace faxtray {

TEST(AdminNotice, CountsNoLongerAfterADay)
{
    site s;
    s.write_users("[admin]\nemail_address = admin\nwhen_to_notify = fax_exception\n"
                  "admin_notify_level = warning\nadmin_exception_volume = 2\n");
    const running_registry registry(s);
    elog_init("test", (s / "exception_log").c_str(), 1);
    admin_notice_init();
    const time_t now = time(nullptr), soon = now + 60;
    nenq(now);  // sent a day ago
    nenq(soon);
    for (const int level : {ELOG_NOTICE, ELOG_FATAL, ELOG_ERROR})
        elog_writef("", "x.cc", 1, level, ELOG_FILE, "lost\n");
    elog_set_notifier(nullptr);
    npurge();

    const std::vector<std::string> mails = take_mail();
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_NE(mails[0].find("FATAL:  lost\nThe notification limit of '2'"), std::string::npos) << mails[0];
    EXPECT_NE(mails[0].find("held until: " + std::string(cv_ctime(&soon)) + "\n"), std::string::npos);
}

}  // namespace faxtray
