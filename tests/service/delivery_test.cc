// Delivery by a forwarder: where faxes go, who is told, and what is left when something fails.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "requests.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/registry.h"

namespace faxtray {

// A fax of the incoming inbox to a recipient, by the forwarder Bea.
static reply_t deliver(const site &s, const std::string &fax, const std::string &recipient)
{
    for (const listed_fax_t &listed : list(bea, s.handle()))
        if (listed.name == fax)
            return call(7, bea + text(s.handle()) + word(listed.id) + text(recipient));
    ADD_FAILURE() << fax << " is not listed";
    return {};
}

// Nothing that a delivery made is left but what it delivered.
static void expect_no_temporaries(const site &s, const std::string &faxes)
{
    EXPECT_EQ(names_in(s.incoming()), ".inbox_index " + faxes);
    const std::string logs = names_in(s / "work");
    EXPECT_TRUE(logs == "trayd_log" || logs == "exception_log trayd_log") << logs;
}

// The attachment of a mail, whatever its kind, as an independent reader finds it.
static std::string attachment(const site &s, const std::string &mail)
{
    s.add(s.path(), "mail", mail.substr(mail.find('\n') + 1));
    s.add(s.path(), "attachment.py", R"(
import base64, binascii, email, email.policy, sys
text = open('mail', 'rb').read()
message = email.message_from_bytes(text, policy=email.policy.default)
if message.is_multipart():
    part = list(message.iter_attachments())[-1]
    assert not message.defects and not part.defects, (message.defects, part.defects)
    data = part.get_payload(decode=True)
elif b'\nbegin 444 ' in text:
    lines = text.split(b'\nbegin 444 ')[1].split(b'\n`\nend\n')[0].split(b'\n')
    data = b''.join(binascii.a2b_uu(line) for line in lines[1:])
else:
    data = base64.b64decode(text.split(b'- base64\n')[1].split(b'\n-')[0], validate=False)
sys.stdout.buffer.write(data)
)");
    return run_shell("cd " + s.path() + " && python3 attachment.py").output;
}

// "[name]" and settings, with the format left as received.
static std::string user(const std::string &name, const std::string &settings)
{
    return "[" + name + "]\ndelivery_file_format = as_received\nemail_address = " + name + "@example.com\n" +
           settings + "\n";
}

TEST(Delivery, ReachesTheInboxAndReplacesNoOtherFax)
{
    site s;
    s.write_users(user("Cy", ""));
    running_daemon daemon(s, {"-d", "0"});
    std::string faxes[2];
    for (std::string &fax : faxes) {  // the second from another modem, say
        fax = s.add_fax(s.incoming(), "f0001.fax");
        for (const char *name : {"CY", "cy"})  // the same delivery done twice is one
            EXPECT_EQ(deliver(s, "f0001.fax", name).res_type(), 6);
    }
    EXPECT_EQ(names_in(s.inbox("cy")), "f00010_.fax f00010__2.fax");
    EXPECT_TRUE(read_file(s.inbox("cy") + "/f00010_.fax") == faxes[0]);
    EXPECT_TRUE(read_file(s.inbox("cy") + "/f00010__2.fax") == faxes[1]);
    EXPECT_TRUE(read_file(s.incoming() + "/f0001.fax") == faxes[1]) << "stays until it is removed";
    s.add(s.incoming(), "letter.fax", read_file(TEST_DATA "/faxes/letter-mmr.fax"));
    EXPECT_EQ(deliver(s, "letter.fax", "al smith").message(), "");
    EXPECT_NE(read_file(s.inbox("alsmith") + "/letter0_.fax").find("\nCOMPRESSION:0\n"), std::string::npos)
        << "coded anew";
    expect_no_temporaries(s, "f0001.fax letter.fax");
}

TEST(Delivery, MailsTheFaxWholeInEveryForm)
{
    site s;
    s.write_users(user("mime", "delivery_method = mimemail_attach") +
                  user("sun", "delivery_method = sunmail_attach") +
                  user("uu", "delivery_method = email_body") +
                  user("base", "delivery_method = email_body\ndelivery_body_encoding = base64"));
    const std::string fax = s.add_fax(s.incoming(), "f0001.fax", 100'001);
    running_daemon daemon(s);
    take_mail();
    for (const char *name : {"mime", "sun", "uu", "base"}) {
        EXPECT_EQ(deliver(s, "f0001.fax", name).res_type(), 6) << name;
        const std::vector<std::string> mails = take_mail();
        ASSERT_EQ(mails.size(), 1u) << name;
        EXPECT_EQ(mails[0].find("args: -om " + std::string(name) + "@example.com\n"), 0u);
        EXPECT_TRUE(attachment(s, mails[0]) == fax) << name << ": not what was received\n";
    }
    expect_no_temporaries(s, "f0001.fax");
}

TEST(Delivery, GoesThroughTheSitesConvertersAndCommands)
{
    site s;
    const scoped_env path("PATH", (s.path() + ":" + getenv("PATH")).c_str());
    s.add_converters();
    s.add(s.path(), "fail", "exit 3\n");
    s.add(s.path(), "take", "{ echo \"$2\"; cat; cat \"$1\"; } >taken\n");
    s.write_users(user("pdf", "delivery_file_format = pdf") +
                  user("mailed", "delivery_file_format = tiff_f\ndelivery_method = mimemail_attach") +
                  user("taker", "delivery_method = exec:sh take") +
                  user("fails", "delivery_method = exec: sh fail"));
    const std::string fax = s.add_fax(s.incoming(), "f0001.fax");
    running_daemon daemon(s);
    take_mail();
    for (const char *name : {"pdf", "mailed", "taker"})
        EXPECT_EQ(deliver(s, "f0001.fax", name).message(), "") << name;

    EXPECT_TRUE(read_file(s.inbox("pdf") + "/f00010_.pdf") == "PDFPS" + fax);
    const std::vector<std::string> mails = take_mail();
    ASSERT_EQ(mails.size(), 1u);
    EXPECT_NE(mails[0].find("application/x-ondrix-tiff"), std::string::npos);
    EXPECT_TRUE(attachment(s, mails[0]) == "TIFF" + fax);
    const std::string taken = read_file(s / "taken");
    EXPECT_TRUE(taken.starts_with(s / "faxtrayes" + "\n[taker]\n") && taken.ends_with(fax));

    EXPECT_EQ(deliver(s, "f0001.fax", "fails").message(),
              "Trayd: Send failed for: fails,Couldn't route fax using command ' sh fail'\nfor " +
                  s.incoming() + "/f0001.fax to 'fails'\nCouldn't route fax using command ' sh fail'");
    expect_no_temporaries(s, "f0001.fax");
    unlink("/tmp/f00010_.fax.ps");
}

TEST(Delivery, ServesTheOtherMembersOfAGroupAndTellsEverybody)
{
    site s;
    s.write_users("[admin]\nemail_address = admin\nwhen_to_notify = fax_failures,fax_exception\n"
                  "admin_notify_level = warning\nadmin_exception_volume = 2\nserver_mail_from = Server\n" +
                  user("Cy", "when_to_notify = fax_incoming") +
                  user("Dee", "human_name = Dorothy\ndelivery_method = exec: sh fail") +
                  "[all]\ngroup = Nobody,Dee, Cy\ngroup_gui = All\n");
    s.add_fax(s.incoming(), "f0001.fax");
    s.add_fax(s.incoming(), "p0001.fax");
    s.add(s.path(), "fail", "exit 3\n");
    const running_registry registry(s);
    running_daemon daemon(s, {"-L", "cat >>" + (s / "told") + "; echo type"});
    take_mail();
    const reply_t reply = deliver(s, "f0001.fax", "all");
    EXPECT_EQ(reply.code(), 10);
    EXPECT_EQ(reply.message(), "Trayd: Group send failed for: Nobody,Dorothy");
    EXPECT_EQ(names_in(s.inbox("cy")), "f00010_.fax");

    const std::vector<std::string> mails = take_mail();
    const struct {
        const char *to, *subject, *text;
    } notices[] = {
        {"admin", "Ondrix: exception logged: deliver_fax_1_svc: 'Nobody' no",
         " WARNING:  deliver_fax_1_svc: 'Nobody' not found in user list!"},
        {"Dee@example.com", "faxtray: Unable to deliver your fax", "Couldn't route fax using command"},
        {"admin", "faxtray: Unable to deliver your fax", "Couldn't route fax using command"},
        {"admin", "Ondrix: exception logged: Couldn't route fax using comma",
         "\nThe notification limit of '2' for the admin's record"},
        {"Cy@example.com", "faxtray: Fax delivered to you", "Incoming fax has been routed to 'Cy' inbox.\n"},
    };
    ASSERT_EQ(mails.size(), std::size(notices));
    for (size_t i = 0; i < mails.size(); i++) {
        EXPECT_EQ(mails[i].find("args: -om " + std::string(notices[i].to) +
                                "\nFrom: Server\nSubject: " + notices[i].subject + "\n\n"),
                  0u)
            << mails[i];
        EXPECT_NE(mails[i].find(notices[i].text), std::string::npos) << mails[i];
    }

    // A problem fax arrives, and counts as failed.
    EXPECT_EQ(deliver(s, "p0001.fax", "Cy").message(),
              "Trayd: Send failed for: Cy,Incoming problem fax has been routed to 'Cy' inbox.\n"
              "Incoming problem fax has been routed to 'Cy' inbox.");
    EXPECT_EQ(names_in(s.inbox("cy")), "f00010_.fax p00010_.fax");
    EXPECT_EQ(take_mail().size(), 1u) << "to the administrator, of the failure, and no more of exceptions";
    EXPECT_NE(read_file(s / "told").find("WARNING:  deliver_fax_1_svc: '(null)' not found in user list!\n"),
              std::string::npos);
    EXPECT_TRUE(daemon.logs("type 2\n"));
}

TEST(Delivery, FailsInWordsAndLosesNothing)
{
    site s;
    s.write_users(user("mime", "delivery_method = mimemail_attach") + user("full", "") + user("gone", "") +
                  user("tiff", "delivery_file_format = tiff_f") + "[Smith, Al]\n");
    const std::string fax = s.add_fax(s.incoming(), "f0001.fax", 100'000);
    running_daemon daemon(s);
    ASSERT_EQ(list(identity("full")).size(), 0u);  // the inboxes are made
    ASSERT_EQ(mount("tmpfs", s.inbox("full").c_str(), "tmpfs", 0, "size=64k"), 0);
    rmdir(s.inbox("gone").c_str());
    const std::string path = s.incoming() + "/f0001.fax";
    for (const auto &[name, reason] : {std::pair<std::string, std::string>("full", "autoroute"),
                                       {"gone", "autoroute"},
                                       {"tiff", "change format of"}}) {
        const reply_t reply = deliver(s, "f0001.fax", name);
        EXPECT_EQ(reply.code(), 9);
        EXPECT_TRUE(reply.message().starts_with("Trayd: Send failed for: " + name +
                                                ",Fax routing failure: Couldn't " + reason + "\n"))
            << reply.message();
    }
    EXPECT_EQ(names_in(s.inbox("full")), "");
    umount(s.inbox("full").c_str());
    EXPECT_EQ(deliver(s, "f0001.fax", "mime,full").message(), "Trayd: Invalid recipient name: [mime,full].");
    EXPECT_EQ(deliver(s, "f0001.fax", "Smith, Al").message(),
              "Trayd: Send failed for: Smith,Al,deliver_fax_1_svc: "
              "'Smith' not found in user list!\ndeliver_fax_1_svc: 'Al' not found in user list!");

    // What the agent makes of a mail shows in its exit status alone.
    replace_mail_agent("#!/bin/sh\nexit 75\n");
    EXPECT_EQ(deliver(s, "f0001.fax", "mime").res_type(), 6);
    restore_mail_agent();
    EXPECT_NE(read_file(s / "work/exception_log").find("mail agent exit status 75 for [mime@example.com]"),
              std::string::npos);

    EXPECT_TRUE(read_file(path) == fax);
    expect_no_temporaries(s, "f0001.fax");
}

TEST(Delivery, IsRefusedOutOfTurnAndSkippedInBackwardCompatibilityMode)
{
    site s;
    s.add_fax(s.incoming(), "f0001.fax");
    running_daemon daemon(s);
    const uint32_t id = list(bea, s.handle())[0].id;
    const std::string handle = text(s.handle()), path = s.incoming() + "/f0001.fax";
    const struct {
        std::string arguments;
        int code;
        std::string message;
    } rows[] = {
        {identity("Bea", "wrong") + handle + word(id) + text("Bea"), 8, "Trayd: Invalid password."},
        {al + handle + word(id) + text("Bea"), 12,
         "Trayd: User \"al smith\" is not DF for inbox \"" + s.handle() + "\"."},
        {bea + text("x") + word(id) + text("Bea"), 12, "Trayd: User \"Bea\" is not DF for inbox \"x\"."},
        {bea + handle + word(7) + text("Bea"), 11, "Trayd: Invalid fax id: 7"},
        {bea + handle + word(id) + text("x"), 5, "Trayd: Invalid recipient name: [x]."},
        {bea + handle + word(id) + text(""), 5, "Trayd: Invalid recipient name: []."},
    };
    for (const auto &row : rows) {
        const reply_t reply = call(7, row.arguments);
        EXPECT_EQ(reply.code(), row.code);
        EXPECT_EQ(reply.message(), row.message);
    }
    unlink(path.c_str());
    const reply_t unreadable = call(7, bea + handle + word(id) + text("Bea"));
    EXPECT_EQ(unreadable.message(),
              "Inbox: Fax id " + std::to_string(id) + " file \"" + path + "\" unreadable.");
    EXPECT_EQ(unreadable.at(2), 13u);  // EACCES
    EXPECT_EQ(daemon.stop(), 0);

    const running_daemon compatible(s, {"-b"});
    EXPECT_EQ(call(7, al + text("") + word(0) + text("x")).res_type(), 6);
}

}  // namespace faxtray
