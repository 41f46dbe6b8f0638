// Mail as the agent sees it: what stands in messages, and what failures leave. That attachments come back
// byte by byte, delivery_test shows.
#include "deliver/mail.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "deliver/mime_mail.h"
#include "deliver/notify.h"
#include "deliver/sun_mail.h"
#include "support/capture.h"
#include "support/private_host.h"
#include "support/registry.h"
#include "util/settings.h"

namespace faxtray {

static const std::string boundary = "Ondrix-MIME-FAX-Boundary";
static const std::string snip = "\n------------------snip------------------ ";

namespace {

// A site whose work directory is the process's, with the fax "in/x0_.fax".
struct Mail : testing::Test {
    Mail()
    {
        fax = s.add_fax(s / "in", "x0_.fax", 100'000);
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s/work", s.path().c_str());
        take_mail();
    }
    ~Mail() override { restore_mail_agent(); }

    int send(const char *address, const char *method, const char *encoding = nullptr,
             const char *format = nullptr)
    {
        return mail_fax_image(address, "A fax", "See below\n", path.c_str(), method, encoding, format,
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

    long files_in(const char *dir)
    {
        return std::distance(std::filesystem::directory_iterator(s / dir),
                             std::filesystem::directory_iterator());
    }

    void add_command(const std::string &name, const std::string &script)
    {
        s.add(s / "utils", name, "#!/bin/sh\n" + script + "\n");
        chmod((s / "utils/" + name).c_str(), 0755);
    }

    site s;
    std::string fax, path = s / "in/x0_.fax";
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
    const std::string too_long(5000, 'a');
    EXPECT_EQ(mail("jdoe", "", ""), -1);
    EXPECT_TRUE(traced("mail: Null mail message\n"));
    EXPECT_EQ(mail(nullptr, "", "text"), -1);
    EXPECT_TRUE(traced("mail: Null user address\n"));
    EXPECT_EQ(mail("mailto://", "", "text"), -1);
    EXPECT_TRUE(traced("mail: Bad user address [mailto://]\n"));
    EXPECT_EQ(mail(too_long.c_str(), "", "text"), -1);
    EXPECT_TRUE(traced("-om " + too_long + "\") failed: Argument list too long\n"));
    EXPECT_EQ(send("mailto://", nullptr), -1);
    EXPECT_TRUE(traced("mail_fax_image: Bad user address [mailto://]\n"));
    EXPECT_EQ(mail_fax("jdoe", "", "", path.c_str()), -1);
    EXPECT_TRUE(traced("mail_fax: Bad user address (bad email URL) [jdoe]\n"));
    path = s / "MODEMS.info";
    EXPECT_EQ(send("jdoe", nullptr), -1);
    EXPECT_TRUE(traced("mail_fax_image: Bad fax file [" + path + "]\n"));
    EXPECT_TRUE(take_mail().empty());
}

TEST_F(Mail, MimeCarriesTheFaxByteByByte)
{
    ASSERT_EQ(send("mailto://jdoe", "mimemail_attach", nullptr, "unknown"), 1);
    const std::string message = sent();
    EXPECT_TRUE(message.starts_with("args: -om jdoe\nTo:   jdoe\nFrom: Ondrix_server\nSubject: A fax\n"
                                    "Mime-Version: 1.0\nContent-Type: multipart/mixed;\n\tboundary=\"" +
                                    boundary + "\"\n\n--" + boundary +
                                    "\nContent-Type: text/plain; charset=us-ascii\n\nSee below\n\n\n\n--" +
                                    boundary + "\nContent-Type: application/x-ondrix; name=\"x0_.fax\"\n"))
        << message.substr(0, 500);
    EXPECT_EQ(mime_mail_fax("jdoe", 0, "no fax", "", nullptr, nullptr), 1);
    EXPECT_TRUE(sent().ends_with("boundary=\"" + boundary + "\"\n\n\n--" + boundary + "--\n"));
}

// The number behind the n-th `name` + ": " of the message, counted from 0.
static long number(const std::string &message, const std::string &name, int n)
{
    size_t at = message.find(name + ": ");
    while (n-- > 0)
        at = message.find(name + ": ", at + 1);
    return strtol(message.c_str() + at + name.size() + 2, nullptr, 10);
}

TEST_F(Mail, MailToolPartsCountTheirLinesAndBytes)
{
    ASSERT_EQ(sun_mail_fax("jdoe", "A fax", "100%% of %s\nhere\n", path.c_str(), "Corvane-Ondrix"), 1);
    const std::string message = sent(), text_head = "----------\nX-Sun-Data-Type: text\n",
                      fax_head = "----------\nX-Sun-Data-Type: Corvane-Ondrix\nX-Sun-Data-Name: x0_.fax\n",
                      fax_data = "begin 444 x0_.fax\n", text = "\n\n100% of (null)\nhere\n";
    const std::pair<size_t, size_t> parts[] = {
        {message.find(text_head), message.find(text) + 1},
        {message.find(text) + text.size(), message.find("\n" + fax_data)},
        {message.find(fax_data), message.size()}};
    EXPECT_EQ(message.compare(parts[1].first, fax_head.size(), fax_head), 0);
    EXPECT_TRUE(message.ends_with("\n`\nend\n"));

    // Kept: the text is counted as it was before it passed as a format.
    long lines = 2, bytes = 17;
    EXPECT_EQ(number(message, "Lines", 1), lines);
    EXPECT_EQ(number(message, "Length", 1), bytes);
    for (const auto &[from, to] : parts) {
        lines += std::count(&message[from], &message[to], '\n');
        bytes += static_cast<long>(to - from);
    }
    EXPECT_EQ(number(message, "Lines", 0), lines);
    EXPECT_EQ(number(message, "Length", 0), bytes);
    EXPECT_EQ(number(message, "Length", 2), static_cast<long>(parts[2].second - parts[2].first));

    EXPECT_EQ(sun_mail_fax(nullptr, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(files_in("work"), 0);
}

TEST_F(Mail, PlainMailGoesToTheAddressAsItStands)
{
    const std::string begins = "args: -om mailto://jdoe\nTo:   mailto://jdoe\nFrom: Ondrix_server\n"
                               "Subject: A fax\n\nSee below\n" +
                               snip;
    ASSERT_EQ(send("mailto://jdoe", "email_body", "base64"), 1);
    std::string message = sent();
    EXPECT_TRUE(message.starts_with(begins + "base64\nut"));
    EXPECT_TRUE(message.ends_with(snip + "base64\n"));

    ASSERT_EQ(send("mailto://jdoe", nullptr), 1);
    message = sent();
    EXPECT_TRUE(message.starts_with(begins + "uuencode\nbegin 444 x0_.fax\nM"));
    EXPECT_TRUE(message.ends_with("\n`\nend\n" + snip + "uuencode\n"));
}

TEST_F(Mail, ConvertedFaxesLeaveNothingBehindAndReplaceNothing)
{
    add_command("tiffconv", "cp \"$2\" \"$3\"");
    add_command("rasterps2", "cp \"$3\" \"$2\"");
    add_command("distill", "echo PDF >\"${1%.ps}.pdf\"");
    const std::string tiff_head = "\nX-Sun-Data-Type: TIFF\nX-Sun-Data-Name: x0_.tif\n",
                      pdf_part = "; name=\"x0_.pdf\"\nContent-Transfer-Encoding: base64\n\nUERGCg==\n";
    ASSERT_EQ(send("jdoe", "sunmail_attach", nullptr, "tiff_f"), 1);
    EXPECT_NE(sent().find(tiff_head), std::string::npos);
    EXPECT_EQ(files_in("in"), 1);

    s.add(s / "in", "x0_.tif", "another");
    EXPECT_EQ(send("jdoe", "mimemail_attach", nullptr, "tiff_f"), -1);
    EXPECT_TRUE(traced("mail_fax_image: Can't filter fax file: [" + path + "]\n"));
    EXPECT_EQ(read_file(s / "in/x0_.tif"), "another");

    ASSERT_EQ(send("jdoe", "mimemail_attach", nullptr, "pdf"), 1);
    EXPECT_NE(sent().find(pdf_part), std::string::npos);
    EXPECT_EQ(files_in("in"), 1) << "the fax itself was converted away";
}

TEST_F(Mail, AnAgentThatFailsIsToldOfAndChangesNoResult)
{
    for (const auto &[script, status] : {std::pair("exit 75", "75"), {"cat >/dev/null; kill -9 $$", "137"}}) {
        replace_mail_agent(std::string("#!/bin/sh\n") + script + "\n");
        EXPECT_EQ(send("mailto://jdoe", "mimemail_attach"), 1);
        EXPECT_TRUE(traced(std::string("mime_mail_fax: mail agent exit status ") + status + " for [jdoe]\n"));
        EXPECT_EQ(send("mailto://jdoe", "email_body"), 1);
        EXPECT_TRUE(
            traced(std::string("image: mail agent exit status ") + status + " for [mailto://jdoe]\n"));
    }
}

TEST_F(Mail, AFullDiskCutsNoFax)
{
    ASSERT_EQ(mount("tmpfs", (s / "work").c_str(), "tmpfs", 0, "size=64k"), 0);
    EXPECT_EQ(send("jdoe", "sunmail_attach"), -1);
    EXPECT_TRUE(traced("sun_mail_fax: encode_uuencode failed\n"));
    EXPECT_TRUE(take_mail().empty());
    EXPECT_EQ(files_in("work"), 0);
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
