// Mail as the agent sees it: what stands in messages, and what failures leave. That attachments come back
// byte by byte, delivery_test shows.
#include "deliver/mail.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

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
        s.add_fax(s / "in", "x0_.fax", 100'000);
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s/work", s.path().c_str());
        take_mail();
    }
    ~Mail() override { restore_mail_agent(); }

    int send(const char *address, const char *method, const char *format = nullptr)
    {
        return mail_fax_image(address, "A fax", "See below\n", path.c_str(), method, nullptr, format,
                              nullptr);
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
    scoped_env home{"ONDRIXHOME", s.path().c_str()};
    scoped_env commands{"PATH", ((s / "utils:") + getenv("PATH")).c_str()};
    trace_on trace;
    capture_stderr printed;
};

}  // namespace

TEST_F(Mail, NoticesGoToTheResolvedAddress)
{
    EXPECT_EQ(mail("mailto://jdoe;x=1", nullptr, "100%\nof it"), 1);
    const std::string header = "From: Ondrix_server\nSubject: Mail from Ondrix Server\n";
    EXPECT_EQ(sent(), "args: -om jdoe\n" + header + "\n100%\nof it\n");
    EXPECT_EQ(trace.text(), "mail(): null subject\nmail:  Could not open connection to info server.\n"
                            "mail(): header...\n" +
                                header + "mail(): mess...\n'100%\nof it'\n");
    EXPECT_EQ(mail("jdoe", "One\nBcc: everybody", "text"), 1);
    EXPECT_NE(sent().find("\nSubject: One Bcc: everybody\n\n"), std::string::npos) << "one header, one line";
}

TEST_F(Mail, WhatCannotGoIsRefused)
{
    const std::string too_long(5000, 'a'), no_fax = s / "MODEMS.info";
    const std::pair<int, std::string> rows[] = {
        {mail("jdoe", "", ""), "mail: Null mail message\n"},
        {mail(nullptr, "", "text"), "mail: Null user address\n"},
        {mail("mailto://", "", "text"), "mail: Bad user address [mailto://]\n"},
        {mail(too_long.c_str(), "", "text"), "-om " + too_long + "\") failed: Argument list too long\n"},
        {send("mailto://", nullptr), "mail_fax_image: Bad user address [mailto://]\n"},
        {mail_fax("jdoe", "", "", path.c_str()), "mail_fax: Bad user address (bad email URL) [jdoe]\n"},
        {mail_fax_image("jdoe", "", "", no_fax.c_str(), nullptr, nullptr, nullptr, nullptr),
         "mail_fax_image: Bad fax file [" + no_fax + "]\n"},
        {sun_mail_fax(nullptr, nullptr, nullptr, nullptr, nullptr), "sun_mail_fax(): null arg 0 0 0 0 0\n"},
    };
    for (const auto &[result, told] : rows) {
        EXPECT_EQ(result, -1) << told;
        EXPECT_TRUE(traced(told)) << told;
    }
    EXPECT_TRUE(take_mail().empty());
}

// Kept: one form passes the text as a format, and counts it as it was before.
TEST_F(Mail, GoesInTheFormOfItsMethod)
{
    s.add(s / "in", "x0_.fax", fax_bytes("#PAGES:1\n", "page"));
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

TEST_F(Mail, ConvertedFaxesLeaveNothingBehindAndReplaceNothing)
{
    s.add(s / "utils", "tiffconv", "#!/bin/sh\ncp \"$2\" \"$3\"\n");
    chmod((s / "utils/tiffconv").c_str(), 0755);
    ASSERT_EQ(send("jdoe", "sunmail_attach", "tiff_f"), 1);
    EXPECT_NE(sent().find("\nX-Sun-Data-Type: TIFF\nX-Sun-Data-Name: x0_.tif\n"), std::string::npos);
    EXPECT_EQ(names_in(s / "in"), "x0_.fax");
    s.add(s / "in", "x0_.tif", "another");
    EXPECT_EQ(send("jdoe", "mimemail_attach", "tiff_f"), -1);
    EXPECT_TRUE(traced("mail_fax_image: Can't filter fax file: [" + path + "]\n"));
    EXPECT_EQ(read_file(s / "in/x0_.tif"), "another");
}

TEST_F(Mail, AnAgentThatFailsIsToldOfAndChangesNoResult)
{
    replace_mail_agent("#!/bin/sh\ncat >/dev/null; kill -9 $$\n");
    EXPECT_EQ(send("mailto://jdoe", "mimemail_attach"), 1);
    EXPECT_TRUE(traced("mime_mail_fax: mail agent exit status 137 for [jdoe]\n"));
    EXPECT_EQ(send("mailto://jdoe", "email_body"), 1);
    EXPECT_TRUE(traced("image: mail agent exit status 137 for [mailto://jdoe]\n"));
}

TEST_F(Mail, AFullDiskCutsNoFax)
{
    ASSERT_EQ(mount("tmpfs", (s / "work").c_str(), "tmpfs", 0, "size=64k"), 0);
    EXPECT_EQ(send("jdoe", "sunmail_attach"), -1);
    EXPECT_TRUE(traced("sun_mail_fax: encode_uuencode failed\n"));
    EXPECT_TRUE(take_mail().empty());
    EXPECT_EQ(names_in(s / "work"), "");
    umount((s / "work").c_str());
}

TEST_F(Mail, UsersAreToldAsTheyWish)
{
    const struct {
        const char *when, *how;
        int event, result;
        const char *trace;
    } rows[] = {
        {"fax_incoming", "email", 26, 1, "notify:  Notify 'Al Smith' of event '26', by email\n"},
        {"fax_incoming_x", "email", 26, 1, "notify:  Notify 'Al Smith' of event '26', by email\n"},
        {"fax_outgoing", "email", 25, 1, "notify:  Notify 'Al Smith' of event '24', by email\n"},
        {"fax_incoming, never", "email", 26, 1, "notify:  'Al Smith' does not want to be notified.\n"},
        {"none", "email", 26, 1, "notify:  Notification for 'fax_incoming' not found in 'none'.\n"},
        {"", "email", 20, 0, "notify:  Could not find '20' in value table\n"},
        {"fax_incoming", "exec", 26, 0, "notify:  IV_HOW_TO_NOTIFY_EXEC not implemented.\n"},
        {"fax_incoming", "", 26, 0, "notify:  Ignoring '-1' notification type...\n"},
    };
    for (const auto &row : rows) {
        av_list_ptr user(av_new("Al Smith"));
        av_put(user.get(), "when_to_notify", row.when);
        av_put(user.get(), "how_to_notify", row.how);
        av_put(user.get(), "email_address", "al");
        EXPECT_EQ(notify(user.get(), nullptr, nullptr, row.event), row.result) << row.when;
        EXPECT_TRUE(traced(row.trace)) << row.trace;
        std::vector<std::string> expected;
        if (std::string_view(row.trace).ends_with("by email\n"))
            expected = {"args: -om al\nFrom: Ondrix_server\nSubject: No subject.\n\nNo message.\n"};
        EXPECT_EQ(take_mail(), expected) << row.when;
    }
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
