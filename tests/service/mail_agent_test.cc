// A fax by mail through a real agent, Debian's dma, to a local mailbox.
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "requests.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/wait_for.h"

namespace faxtray {

// Mailboxes and queue of this host's own, and a user "carol"; /etc is this host's anyway.
static void make_mail_host()
{
    const struct group *mail = getgrnam("mail");
    ASSERT_NE(mail, nullptr);
    const std::string options = "mode=2775,gid=" + std::to_string(mail->gr_gid);
    for (const char *dir : {"/var/mail", "/var/spool/dma"})
        ASSERT_EQ(mount("tmpfs", dir, "tmpfs", 0, options.c_str()), 0) << dir;
    std::ofstream("/etc/passwd", std::ios::app) << "carol:x:4711:4711::/nonexistent:/bin/false\n";
    std::ofstream("/etc/mailname") << "localhost\n";
    link_mail_agent("/usr/sbin/dma");
}

TEST(MailAgent, ADeliveredFaxComesOutOfTheMailboxByteForByte)
{
    if (access("/usr/sbin/dma", X_OK) != 0)
        GTEST_SKIP() << "dma is not installed here (scripts/test.sh does so where there is no mail agent)";
    make_mail_host();
    site s;
    s.write_users("[carol]\nemail_address = carol\ndelivery_method = mimemail_attach\n"
                  "delivery_file_format = as_received\nwhen_to_notify = never\n");
    const std::string fax = s.add_fax(s.incoming(), "f0001.fax", 1'000'001);
    {
        running_daemon daemon(s);
        const std::string id = word(list(bea, s.handle())[0].id);
        EXPECT_EQ(call(7, bea + text(s.handle()) + id + text("carol")).message(), "");
    }
    // The agent delivers in the background: the last line of the mail is the end of its boundary.
    const std::string mailbox = "/var/mail/carol";
    EXPECT_TRUE(wait_for([&] {
        return access(mailbox.c_str(), F_OK) == 0 &&
               read_file(mailbox).find("\n--Ondrix-MIME-FAX-Boundary--\n") != std::string::npos;
    })) << run_shell("mailq; ls -l /var/mail /var/spool/dma").output;
    const ended_t parsed = run_shell("cd " + s.path() + R"( && python3 -c '
import email.policy, mailbox
[key] = (box := mailbox.mbox("/var/mail/carol")).keys()
message = email.message_from_bytes(box.get_bytes(key), policy=email.policy.default)
text, fax = message.iter_parts()
assert not message.defects + text.defects + fax.defects
assert message["Subject"] == "Incoming fax from UNKNOWN", message["Subject"]
assert text.get_content() == "The attached fax was routed to you by the Ondrix Server\n\n\n", text
assert (fax.get_content_type(), fax.get_filename()) == ("application/x-ondrix", "f00010_.fax"), fax
open("attachment", "wb").write(fax.get_payload(decode=True))
')");
    ASSERT_EQ(parsed.status, 0) << parsed.output << read_file(mailbox).substr(0, 2000);
    EXPECT_TRUE(read_file(s / "attachment") == fax) << "the attachment is not what was received";
    for (const char *dir : {"/var/mail", "/var/spool/dma"})
        umount(dir);
    restore_mail_agent();
}

}  // namespace faxtray
