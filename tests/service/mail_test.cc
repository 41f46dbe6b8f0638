// Mail that no request brings about: odd arguments, and the functions for the fax system's other programs.
#include "deliver/mail.h"

#include <gtest/gtest.h>

#include <tuple>

#include "deliver/mime_mail.h"
#include "deliver/notify.h"
#include "deliver/sun_mail.h"
#include "support/capture.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "util/settings.h"

namespace faxtray {

namespace {

// A site whose work directory is the process's, with the fax "in/x0_.fax".
struct Mail : testing::Test {
    Mail()
    {
        s.add(s / "in", "x0_.fax", fax_bytes("#PAGES:1\n", "page"));
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s/work", s.path().c_str());
        take_mail();
    }

    // The one message that was sent.
    std::string sent()
    {
        std::vector<std::string> mails = take_mail();
        EXPECT_EQ(mails.size(), 1u);
        return mails.empty() ? "" : mails[0];
    }

    bool traced(const std::string &text) const { return trace.text().find(text) != std::string::npos; }

    site s;
    const std::string path = s / "in/x0_.fax";
    trace_on trace;
    capture_stderr printed;
};

}  // namespace

TEST_F(Mail, OddArgumentsAreRefusedOrMadeFit)
{
    const std::string too_long(5000, 'a'), no_fax = s / "MODEMS.info";
    const std::pair<int, std::string> rows[] = {
        {mail("jdoe", "", ""), "mail: Null mail message\n"},
        {mail(nullptr, "", "text"), "mail: Null user address\n"},
        {mail(too_long.c_str(), "", "text"), "-om " + too_long + "\") failed: Argument list too long\n"},
        {mail_fax("jdoe", "", "", path.c_str()), "mail_fax: Bad user address (bad email URL) [jdoe]\n"},
        {mail_fax_image("jdoe", "", "", no_fax.c_str(), nullptr, nullptr, nullptr, nullptr),
         "mail_fax_image: Bad fax file [" + no_fax + "]\n"},
        {sun_mail_fax(nullptr, nullptr, nullptr, nullptr, nullptr), "sun_mail_fax(): null arg 0 0 0 0 0\n"},
    };
    for (const auto &[result, told] : rows) {
        EXPECT_EQ(result, -1) << told;
        EXPECT_TRUE(traced(told)) << told;
    }
    EXPECT_EQ(mail("mailto://jdoe;x=1", "One\nBcc: all\r\nmore", "100%\nof it"), 1);
    EXPECT_EQ(sent(), "args: -om jdoe\nFrom: Ondrix_server\nSubject: One Bcc: all  more\n\n100%\nof it\n");
}

// Kept: one form passes the text as a format, and counts it as it was before.
TEST_F(Mail, GoesInTheFormOfItsMethod)
{
    for (const auto &[method, encoding, message] : {std::tuple("mimemail_attach", "", "mime.ref"),
                                                    {"sunmail_attach", "", "sun.ref"},
                                                    {"email_body", "base64", "base64.ref"},
                                                    {"email_body", "", "uuencode.ref"}}) {
        EXPECT_EQ(mail_fax_image("mailto://jdoe", "A fax", "100%% of %s\nhere\n", path.c_str(), method,
                                 encoding, "unknown", nullptr),
                  1);
        EXPECT_EQ(sent(), read_file(std::string(TEST_DATA "/mail/") + message));
    }
    EXPECT_EQ(names_in(s / "work"), "");
    EXPECT_EQ(mime_mail_fax("jdoe", 0, "no fax", "", nullptr, nullptr), 1);
    EXPECT_TRUE(sent().ends_with("-Boundary\"\n\n\n--Ondrix-MIME-FAX-Boundary--\n"));
}

TEST_F(Mail, TheRegistryKnowsTheSenderAndTheUsers)
{
    const std::string cy = "[Cy]\nwhen_to_notify = fax_incoming\nhow_to_notify = email\nemail_address = cy\n";
    s.write_users("[admin]\nserver_mail_from = fax@example.com\n" + cy);
    const running_registry registry(s);
    EXPECT_EQ(notify_uname("Cy", "s", "m", 26), 1);
    EXPECT_EQ(sent(), "args: -om cy\nFrom: fax@example.com\nSubject: s\n\nm\n");
    EXPECT_EQ(notify_uname("Nobody", "s", "m", 26), 0);
    EXPECT_TRUE(traced("notify_uname:  Record for user 'Nobody' not found.\n"));

    control_file_t job = {0, "(none)", "Cy", [](const control_file_t *) { return 1; }};
    s.write_users("[admin]\nserver_mail_from =\n" + cy);
    EXPECT_EQ(notify_cfile_user(&job, "s", "m", 26), 1);
    EXPECT_EQ(sent(), "args: -om cy\nFrom: Ondrix_server\nSubject: s\n\nm\n");
    job.address = "clerk";
    EXPECT_EQ(notify_cfile_user(&job, "s", "m", 26), 1);
    EXPECT_TRUE(sent().starts_with("args: -om clerk\n"));
}

}  // namespace faxtray
