// What the keeping of a server rests on: questions that may hang, addresses, and the text that Prometheus
// reads.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <fstream>
#include <stdexcept>

#include "check/needs.h"
#include "client/status_command.h"
#include "disk/work_note.h"
#include "rpc/host_address.h"
#include "support/temp_dir.h"
#include "util/settings.h"
#include "util/timed_answer.h"

namespace faxtray {

TEST(TimedAnswer, IsWholeOrNone)
{
    const std::string large(300'000, '\0');  // more than a pipe holds
    EXPECT_EQ(timed_answer(30, [&] { return large; }), large);
    EXPECT_EQ(timed_answer(30, [] { return std::string(); }), "");
    EXPECT_FALSE(timed_answer(30, []() -> std::string { throw std::runtime_error("no"); }));
    EXPECT_FALSE(timed_answer(30, []() -> std::string { _exit(0); }));
    const time_t began = time(nullptr);
    EXPECT_FALSE(timed_answer(1, [] { return std::to_string(sleep(60)); }));
    EXPECT_LT(time(nullptr) - began, 30);
}

TEST(HostAddress, TellsOwnAddressesFromOthers)
{
    struct {
        const char *name;
        bool own;
    } rows[] = {{"localhost", true}, {"127.0.0.2", true}, {"192.0.2.1", false}};
    for (const auto &row : rows) {
        const auto address = find_host(row.name, 30);
        ASSERT_TRUE(address) << row.name;
        EXPECT_EQ(is_own_address(*address), row.own) << row.name;
    }
    EXPECT_FALSE(find_host("no name", 30));
}

TEST(Prometheus, ReadsWhateverAServerSaysInAnyLocale)
{
    const std::string before = setlocale(LC_ALL, nullptr);
    setlocale(LC_ALL, "C.UTF-8");
    setlocale(LC_NUMERIC, "de_DE.UTF-8");  // where it is installed: a decimal comma
    service_status_t status;
    status.host = "fax";
    status.version = "a \"b\" \\ \n \xFF \xC3\xBC";
    status.answer_seconds = 0.25;
    status.parts = {{"mail agent", part_state::OK, ""},
                    {"converters", part_state::NOT_NEEDED, ""},
                    {"disk", part_state::WARNING, "", "/faxes", 0.0625}};
    EXPECT_EQ(prometheus_text({status}).find("not_needed"), std::string::npos);
    for (const char *line :
         {"\nfaxtray_ok{host=\"fax\"} 0.0\n", "\nfaxtray_answer_seconds{host=\"fax\"} 0.25\n",
          "\nfaxtray_up{host=\"fax\",part=\"mail_agent\"} 1.0\n# HELP",
          "{host=\"fax\",version=\"a \\\"b\\\" \\\\\\\\ \\\\x0A \\\\xFF \xC3\xBC\"} 1.0\n",
          "\n# TYPE faxtray_disk_free_ratio gauge\nfaxtray_disk_free_ratio{host=\"fax\",path=\"/faxes\"} "
          "0.0625\n"})
        EXPECT_NE(prometheus_text({status}).find(line), std::string::npos)
            << line << prometheus_text({status});
    setlocale(LC_ALL, before.c_str());
}

// Deliveries lock their notes; what a dead one has left counts for nothing.
TEST(DeliveryRuns, AsLongAsSomeNoteIsLocked)
{
    const temp_dir dir;
    const std::string before = dvWork_dir, left = dir / "delivery_note.17.0";
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", dir.path().c_str());
    EXPECT_FALSE(delivery_runs());
    std::ofstream(left) << "x";
    EXPECT_FALSE(delivery_runs());
    ASSERT_TRUE(note_begin());
    EXPECT_TRUE(delivery_runs());
    note_end();
    EXPECT_FALSE(delivery_runs());
    unlink(left.c_str());
    ASSERT_EQ(symlink("nowhere", left.c_str()), 0);  // nobody can tell what it is
    EXPECT_TRUE(delivery_runs());
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", before.c_str());
}

TEST(Needs, AreThoseOfUsersAndNotOfGroups)
{
    struct {
        std::vector<std::pair<const char *, const char *>> entry;
        bool mail, notices, short_names;
        size_t converters;
    } rows[] = {
        {{{"delivery_method", "faxtray"}}, false, false, false, 0},
        {{{"delivery_method", "email_body"}, {"email_address", "a@b"}, {"delivery_file_format", "pdf"}},
         true,
         false,
         false,
         2},
        {{{"delivery_method", "exec:true"}, {"delivery_file_format", "tiff_f"}}, false, false, false, 1},
        {{{"delivery_method", "faxtray"}, {"delivery_naming", "8.3"}}, false, false, true, 0},
        {{{"delivery_method", "faxtray"}, {"when_to_notify", "fax_incoming"}, {"email_address", "a@b"}},
         false,
         true,
         false,
         0},
        {{{"delivery_method", "faxtray"}, {"when_to_notify", "never"}, {"email_address", "a@b"}},
         false,
         false,
         false,
         0},
        {{{"delivery_method", "email_body"}, {"group", "Anna,Bert"}}, false, false, false, 0},
    };
    for (const auto &row : rows) {
        const av_list_ptr user(av_new("Anna"));
        for (const auto &[name, value] : row.entry)
            ASSERT_TRUE(av_put(user.get(), name, value));
        needs_t needs;
        add_needs(user.get(), needs);
        size_t converters = 0;
        for (const int format : needs.formats)
            converters += converters_of(format).size();
        const auto id = &row - rows;
        EXPECT_EQ(needs.mail, row.mail) << id;
        EXPECT_EQ(needs.notices, row.notices) << id;
        EXPECT_EQ(needs.short_names, row.short_names) << id;
        EXPECT_EQ(converters, row.converters) << id;
    }
    EXPECT_TRUE(is_command("sh") && is_command("/bin/sh"));
    EXPECT_FALSE(is_command("no such command") || is_command("/etc/passwd") || is_command("/bin"));
}

}  // namespace faxtray
