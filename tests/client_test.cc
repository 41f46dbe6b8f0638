// What the client does without a server. What it does with one, true or false, is in the scenarios client_*.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <clocale>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>

#include "client/client_config.h"
#include "client/client_session.h"
#include "client/hosts.h"
#include "client/known_faxes.h"
#include "client/output.h"
#include "client/shown_faxes.h"
#include "disk/whole_file.h"
#include "support/capture.h"
#include "util/command_output.h"

namespace faxtray {

TEST(Client, StrangersTextDoesNotSteerTheTerminal)
{
    const std::string before = setlocale(LC_CTYPE, nullptr);
    ASSERT_TRUE(setlocale(LC_CTYPE, "C.UTF-8"));
    struct {
        std::string text, shown;
    } rows[] = {{"\x1B[2Jgone", "\\x1B[2Jgone"}, {"two\nlines\t", "two\\x0Alines\\x09"},
                {"b\xC3\xBCro", "b\xC3\xBCro"},  {"b\xFCro", "b\\xFCro"},
                {"\xC2\x9B[", "\\xC2\\x9B["},  // the one-character form of ESC [
                {"cut \xC3", "cut \\xC3"},       {"a\\x41", "a\\\\x41"}};
    for (const auto &row : rows)
        EXPECT_EQ(printable(row.text), row.shown);
    EXPECT_EQ(printable_lines("two\nlines\t"), "two\n  lines\\x09");
    setlocale(LC_CTYPE, before.c_str());
}

TEST(Client, FaxNamesStayInTheirDirectory)
{
    for (const char *name : {"", ".", "..", ".hidden", "../up", "/etc/passwd", "a/b", "-o", "line\nend"})
        EXPECT_EQ(file_name_for({7, name, {}, {}, {}}), "fax-7") << name;
    for (const char *name : {"f0001", "a b", "b\xFCro", "x.-"})
        EXPECT_EQ(file_name_for({7, name, {}, {}, {}}), name);
}

TEST(Client, FindsAnInboxByDescriptionOrHandle)
{
    std::vector<incoming_inbox> inboxes = {{"Front Desk", "1a2b"}, {"cafe", "77"}, {"Other.", "cafe"}};
    EXPECT_EQ(handle_of(inboxes, "frontdesk"), "1a2b");
    EXPECT_EQ(handle_of(inboxes, "1a2b") + handle_of(inboxes, "1A2B"), "1a2b");
    EXPECT_EQ(handle_of(inboxes, "cafe"), "77");  // descriptions first
    EXPECT_EQ(comma_separated(" a b, ,c ,\td,"), (std::vector<std::string>{"a b", "c", "d"}));
}

TEST(Client, UsersAreSpreadOverHostsAndStayWithTheirs)
{
    std::map<std::string, int> users;
    for (int n = 0; n < 300; n++) {
        const std::string user = "user" + std::to_string(n);
        const std::vector<std::string> order = hosts_for("a, b ,c", user), fewer = hosts_for("c,a", user);
        EXPECT_EQ(order, hosts_for("c,b,a", user)) << user;
        EXPECT_EQ(fewer[0], order[order[0] == "b" ? 1 : 0]) << user;
        users[order[0]]++;
    }
    for (const char *host : {"a", "b", "c"})
        EXPECT_NEAR(users[host], 100, 30) << host;
    EXPECT_EQ(hosts_for("a,b,c", "Anna"), hosts_for("a,b,c", "anna"));
}

TEST(Client, AnIdMeansWhatAnyOfTheHostsShowedLast)
{
    temp_dir cache;
    scoped_env where("XDG_CACHE_HOME", cache.path().c_str());
    auto fax = [](faxid_t id, const char *name) {
        return fax_entry{id, name, {}, {}, {}, 1, true, 10, 1000};
    };
    auto at = [](const char *hosts) { return shown_faxes(hosts_for(hosts, "anna"), "anna", {}); };
    at("a,b").replace({fax(1, "x"), fax(2, "y")});
    {
        shown_faxes next = at("b,a");
        EXPECT_TRUE(!next.lacks(1) && next.lacks(3));
        EXPECT_TRUE(next.differs(fax(1, "y")) && !next.differs(fax(1, "x")));
        next.add(fax(2, "z"));  // as the newest at the other host
        EXPECT_FALSE(next.differs(fax(2, "z")));
    }
    // From then on it is in doubt what the user means by it, however often it is seen.
    for (int run = 0; run < 2; run++) {
        shown_faxes next = at("a,b");
        EXPECT_TRUE(next.differs(fax(2, "z")) && next.differs(fax(2, "y")) && !next.differs(fax(1, "x")));
        next.add({fax(2, "z"), fax(3, "new")});
    }
    EXPECT_FALSE(at("a,b").lacks(3));
    at("a,b").replace({fax(2, "z")});
    EXPECT_TRUE(!at("a,b").differs(fax(2, "z")) && at("a,b").lacks(1));

    // Other hosts, or one by itself, have shown nothing; one alone is taken at its word.
    EXPECT_TRUE(at("a,b,c").lacks(2));
    EXPECT_TRUE(!at("a").lacks(2) && !at("a").differs(fax(2, "q")));
    at("a").replace({fax(2, "q")});
    at("a").add(fax(2, "r"));
    EXPECT_TRUE(at("a").differs(fax(2, "q")) && !at("a").differs(fax(2, "r")));
}

TEST(Client, ReadsItsConfiguration)
{
    temp_dir dir;
    scoped_env where("XDG_CONFIG_HOME", dir.path().c_str()), home("HOME", "/home/anna");
    std::filesystem::create_directory(dir / "faxtray");
    const std::string beside = dir / "faxtray/";
    struct {
        std::string text, problem, host, user, password_file;
    } rows[] = {
        {"", "", "localhost", "me", "mine"},
        {"host=a", "", "a", "me", "mine"},
        {"# host = b\n\n\thost = a, b\t\r\nuser=anna\n", "", "a, b", "anna", "mine"},
        {"host = a\nhost = b", "", "b", "me", "mine"},
        {"password-file = ~/.fax", "", "localhost", "me", "/home/anna/.fax"},
        {"password-file = \"/etc/my fax\"", "", "localhost", "me", "/etc/my fax"},
        {"password-file = a=b#c", "", "localhost", "me", beside + "a=b#c"},
        {"host = a\nHost = b", ":2: unknown name [Host]", "", "", ""},
        {"user", ":1: no value for user", "", "", ""},
        {"\n\nuser =\n", ":3: no value for user", "", "", ""},
        {"= a", ":1: unknown name []", "", "", ""},
        {"host \x1b = a", ":1: unknown name [host \\x1B]", "", "", ""},
        {std::string("host = a\0b\nuser = x\n", 20), "", std::string("a\0b", 3), "x", "mine"},
        {std::string(65537, '#'), ": too large", "", "", ""},
    };
    for (const auto &row : rows) {
        options chosen;
        chosen.user = "me";
        chosen.password_file = "mine";
        dir.write("faxtray/config", row.text);
        const std::string problem = read_client_config(&chosen);
        if (!row.problem.empty()) {
            EXPECT_TRUE(problem.starts_with(beside + "config" + row.problem)) << problem;
            continue;
        }
        EXPECT_EQ(problem, "") << row.text;
        EXPECT_EQ(chosen.host, row.host) << row.text;
        EXPECT_EQ(chosen.user, row.user) << row.text;
        EXPECT_EQ(chosen.password_file, row.password_file) << row.text;
    }
}

TEST(Client, KnowsFaxesFromRunToRun)
{
    temp_dir dir;
    capture_stderr err;
    const std::string path = dir / "known";
    const fax_entry a = {1, "a", {}, {}, {}, 1, true, 10, 1000}, b = {2, "b", {}, {}, {}, 1, true, 10, 1000};
    auto known = std::make_unique<known_faxes>();
    ASSERT_TRUE(known->open(path) && known->first_time() && known->save());
    EXPECT_FALSE(known_faxes().open(path));  // at work with it
    known = std::make_unique<known_faxes>();
    ASSERT_TRUE(known->open(path) && !known->first_time());
    known->add(a);
    known->add(b);
    ASSERT_TRUE(known->save() && known->save());

    // Cut at every length, as a kill may leave it, it holds only whole faxes, and takes new ones.
    const std::string whole = read_file(path);
    known.reset();
    for (size_t length = 0; length < whole.size(); length++) {
        dir.write("known", whole.substr(0, length));
        known_faxes cut, again;
        ASSERT_TRUE(cut.open(path));
        EXPECT_FALSE(cut.contains(b));
        EXPECT_EQ(cut.first_time(), length < 22);
        cut.add(b);
        ASSERT_TRUE(cut.save());
        cut = known_faxes();
        ASSERT_TRUE(again.open(path));
        EXPECT_TRUE(again.contains(b) && again.contains(a) == (length >= 32)) << length;
    }
    for (const fax_entry &other : {fax_entry{2, "c", {}, {}, {}, 1, true, 10, 1000},
                                   {2, "b", {}, {}, {}, 1, true, 11, 1000},
                                   {2, "b", {}, {}, {}, 1, true, 10, 1001}})
        EXPECT_NE(lasting_key(other), lasting_key(b));

    // Of many that are gone, none is forgotten too early.
    known_faxes many;
    ASSERT_TRUE(many.open(path));
    for (u_int n = 0; n < 100'001; n++)
        many.add({n, "gone", {}, {}, {}, 1, true, n, 1000});
    const size_t before = many.size();
    EXPECT_TRUE(many.save() && many.forget_gone(std::deque<fax_entry>(10)) && many.size() == before);
    EXPECT_TRUE(many.forget_gone({a, b}) && many.contains(b) && many.size() == 2);
    EXPECT_EQ(read_file(path), whole);
}

TEST(Client, AFullDiskTearsNoRecordOfAKnownFax)
{
    temp_dir dir;
    capture_stderr err;
    const std::string path = dir / "known";
    const fax_entry a = {1, std::string(100, 'a'), {}, {}, {}, 1, true, 10, 1000};
    const fax_entry b = {2, "b", {}, {}, {}, 1, true, 10, 1000};
    {
        known_faxes known;
        ASSERT_TRUE(known.open(path) && known.save());
        const auto before = signal(SIGXFSZ, SIG_IGN);
        rlimit limit = {};
        getrlimit(RLIMIT_FSIZE, &limit);
        const rlimit small = {60, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        known.add(a);
        const bool saved = known.save();
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, before);
        EXPECT_FALSE(saved);
        EXPECT_EQ(read_file(path).size(), 22u);
        known.add(b);
        EXPECT_TRUE(known.contains(a) && known.save());
    }
    known_faxes again;
    EXPECT_TRUE(again.open(path) && again.contains(a) && again.contains(b));
}

TEST(Client, AFaxIsOnDiskWholeOrNotAtAll)
{
    temp_dir dir;
    capture_stderr err;
    const std::string target = dir / "fax";
    auto dropped = std::make_unique<whole_file>();
    ASSERT_TRUE(dropped->begin(target, false) && dropped->write("half", 4));
    dropped.reset();
    EXPECT_EQ(names_in(dir.path()), "");

    whole_file first, late, forced;
    ASSERT_TRUE(first.begin(target, false) && late.begin(target, false) && late.write("late", 4));
    ASSERT_TRUE(first.write("first", 5) && first.keep());
    EXPECT_FALSE(late.keep());  // somebody was faster
    EXPECT_FALSE(whole_file().begin(target, false));
    ASSERT_TRUE(forced.begin(target, true) && forced.write("forced", 6));
    EXPECT_EQ(read_file(target), "first");
    ASSERT_TRUE(forced.keep());
    EXPECT_EQ(read_file(target), "forced");

    EXPECT_FALSE(whole_file().begin(dir.path(), true));  // a directory is not replaced
}

}  // namespace faxtray
