// Re-codes fax files, and leaves alone those that it cannot re-code.
#include "codec/change_format.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "../fuzz/fax_file.h"
#include "support/capture.h"
#include "support/daemon.h"
#include "support/pages.h"
#include "support/t4_notation.h"

namespace faxtray {

struct change_t {
    int result;
    std::string content, messages;  // of the file; on standard error
};

// Re-codes a file of that content while no file may grow beyond `room` bytes. No other is left beside it.
static change_t change(const std::string &content, int df, void (*progress)() = nullptr,
                       rlim_t room = RLIM_INFINITY)
{
    temp_dir dir;
    const std::string path = dir.write("fax", content);
    capture_stdout out;
    capture_stderr err;
    rlimit before;
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limit = {room, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    const int result = t4dec_change_format(path.c_str(), df, 0, progress);
    setrlimit(RLIMIT_FSIZE, &before);
    out.text();
    const change_t changed = {result, read_file(path), err.text()};
    EXPECT_EQ(names_in(dir.path()), "fax");
    return changed;
}

TEST(ChangeFormat, TakesTheHeadersWordForTheNumberOfPages)
{
    const page_t page = sample_pages(40)[0].lines;
    const std::vector<std::string> two_pages(2, encode(page, 1));
    static int progress;
    for (auto [attribute, count] : {std::pair("", 0),
                                    {"#PAGES:0\n", 0},
                                    {"#PAGES:x\n", 0},
                                    {"#PAGES:  1 of 2\n", 1},
                                    {"#PAGES:2\n", 2}}) {
        const std::string head = std::string("X:1\nRESOLUTION: 0\n") + attribute;
        const std::vector<std::string> kept(static_cast<size_t>(count), encode(page, 3));
        const std::string file = fax_file_of(two_pages, 1, head);
        progress = 0;
        EXPECT_EQ(change(file, 3, [] { progress++; }).content, fax_file_of(kept, 3, head)) << attribute;
        EXPECT_EQ(progress, count);
        const change_t same = change(file, 1);
        EXPECT_TRUE(same.result == 1 && same.content == file) << "it has that coding already";
    }
}

TEST(ChangeFormat, LeavesWhatItRefusesAsItWas)
{
    const std::string page = encode(sample_pages(40)[0].lines, 1), one = "#PAGES:1\nRESOLUTION:1\n",
                      two = "#PAGES:2\nRESOLUTION:1\n", good = fax_file_of({page}, 1, one),
                      huge("\xFF\xFF\xFF\xFFrest", 8);
    const struct {
        std::string file;
        int target;
        std::string message;
    } rows[] = {
        {good, 2, "Unsupported compression: 2.\n"},
        {"", 3, "Bad fax file: "},
        {fax_file_of({page}, 7, one), 3, "Could not determine compression: "},
        {fax_file_of({page}, 1, "#PAGES:1\n"), 3, "Could not determine resolution: "},
        {fax_file_of({page}, 1, one + "RESOLUTION:3\n"), 3, "Can't handle type \"\2\" resolution yet.\n"},
        {fax_file_of({page}, 1, two), 3, "Short read on data length:  "},
        {fax_file_of({page}, 1, two) + huge, 3, "read_len=4\n"},
        {good.substr(0, good.size() - 1), 3, "read_len=" + std::to_string(page.size() - 1) + "\n"},
        {fax_file_of({page, ""}, 1, two), 3, ""},  // MR takes no empty page
        {fax_file_of({page}, 2, one), 3, ""},      // nor is there such a decoder
    };
    for (const auto &row : rows) {
        const change_t kept = change(row.file, row.target);
        EXPECT_EQ(kept.result, 0) << row.message;
        EXPECT_TRUE(kept.content == row.file) << row.message;
        EXPECT_NE(kept.messages.find(row.message), std::string::npos) << row.message << "\n" << kept.messages;
    }
}

TEST(ChangeFormat, SurvivesADiskThatFills)
{
    const std::string page = encode(sample_pages(200)[3].lines, 3),
                      file = fax_file_of({page, page, page}, 3, "#PAGES:3\nRESOLUTION:1\n");
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    for (size_t room : {size_t{10}, size_t{30}, size_t{41}, size_t{5000}, page.size() + 100}) {
        const change_t kept = change(file, 1, nullptr, room);
        EXPECT_EQ(kept.result, 0) << room;
        EXPECT_TRUE(kept.content == file) << room;
    }
    signal(SIGXFSZ, handler);
}

TEST(ChangeFormat, ReplacesNoOtherFileAndKeepsThePermissions)
{
    temp_dir dir;
    const std::string file =
                          fax_file_of({encode(sample_pages(9)[0].lines, 1)}, 1, "#PAGES:1\nRESOLUTION:1\n"),
                      path = dir.write("fax", file), victim = dir.write("victim", "precious"),
                      pid = std::to_string(getpid()), taken = dir.write("fax.1." + pid, "a fax"),
                      link = path + "." + pid;
    std::filesystem::create_symlink(victim, link);
    for (const mode_t mode : {0600U, 0664U}) {
        chmod(path.c_str(), mode);
        EXPECT_EQ(t4dec_change_format(path.c_str(), mode == 0600 ? 3 : 1, 0, nullptr), 1);
        struct stat st;
        EXPECT_TRUE(stat(path.c_str(), &st) == 0 && (st.st_mode & 07777) == mode) << st.st_mode;
    }
    EXPECT_EQ(read_file(path), file);
    EXPECT_EQ(read_file(link) + ", " + read_file(taken), "precious, a fax");
}

// In T.6 a white line after a white line is one bit.
TEST(ChangeFormat, DropsLinesThatAreTooManyForAnyPage)
{
    temp_dir dir;
    const std::string path =
        dir.write("fax", fax_file_of({std::string(200'000, '\xFF')}, 3, "#PAGES:1\nRESOLUTION:1\n"));
    EXPECT_EQ(t4dec_change_format(path.c_str(), 1, 0, nullptr), 1);
    fax_pages_t fax;
    std::vector<unsigned char> page;
    ASSERT_TRUE(open_fax_pages(path, &fax) && read_fax_page(&fax, &page));
    EXPECT_EQ(look_at_page(fax.df, page).counts.lines, (256 << 20) / 216);
}

TEST(Faxconv, DoesWhatItSaysAndReportsHowItWent)
{
    temp_dir dir;
    const page_t page = sample_pages(40)[0].lines;
    const std::string mr = fax_file_of({encode(page, 1)}, 1, "#PAGES:1\nRESOLUTION:1\n");
    dir.write("mr", mr);
    dir.write("mmr", "old");
    dir.write("mh", fax_file_of({encode(page, 0)}, 0, "#PAGES:1\nRESOLUTION:1\n"));
    dir.write("cut", mr.substr(0, mr.size() - 1));
    dir.write("page-001.pbm", "old");
    dir.write("short", fax_file_of({t4_coded("EOL+1 w4 b12 EOL+1 w16 EOL+1"), "unseen"}, 1, "#PAGES:1\n"));
    mkfifo((dir / "pipe").c_str(), 0600);
    const std::string other = dir.write("other", mr);
    std::filesystem::create_symlink(other, dir / "link");
    std::filesystem::permissions(dir / "mr", std::filesystem::perms::owner_all);
    std::filesystem::permissions(other, std::filesystem::perms::owner_all);
    static_cast<void>(chown(other.c_str(), 1234, 1235));  // as root; else it stays ours
    struct stat before, after;
    stat(other.c_str(), &before);
    const struct {
        const char *arguments;
        int status;
        const char *printed;  // a piece of what it prints
    } rows[] = {
        {"--to mmr mr mmr", 0, ""},  // replaces
        {"--to mmr cut mh", 1, "t4dec_change_format: data_len="},
        {"--to none/such mr mmr", 1, "can't create a file beside it"},
        {"--to link mr mmr", 1, "it is no regular file"},
        {"--to none/such pipe mmr", 1, "not a file"},
        {"pipe mmr", 1, "not a file"},
        {"--info mh", 0, "(Fine (196 lpi))\nCOMPRESSION: 0\ncoding: MH (1-D)\n"},
        {"--info short", 0, "       2         0      2\nand 10 bytes after the last page\n"},
        {"--info --json short", 0, "\"ended_short\": 2"},
        {"--info cut", 1, "bytes long, but the file has "},
        {"--info --json cut", 1, "\"whole\": false"},
        {"--to mh-to-mr mh mr", 0, "warning: coded MH"},
        {"--pbm page mmr", 0, ""},
        {"link mmr", 0, ""},  // the file, not the link, is replaced
        {"nothing mr", 1, "faxconv: nothing: No such file or directory\n"},
        {"mr umr", 2, "umr"},
        {"--info mr mh", 2, ""},
    };
    for (const auto &row : rows) {
        const ended_t ended = run_shell("cd " + dir.path() + " && " FAXCONV " " + row.arguments);
        EXPECT_EQ(ended.status, row.status) << row.arguments << "\n" << ended.output;
        EXPECT_NE(ended.output.find(row.printed), std::string::npos) << row.arguments << "\n" << ended.output;
    }
    EXPECT_TRUE(read_file(dir / "mr") == mr);
    EXPECT_TRUE(read_file(dir / "mmr") == fax_file_of({encode(page, 3)}, 3, "#PAGES:1\nRESOLUTION:1\n"));
    EXPECT_EQ(std::filesystem::status(dir / "mmr").permissions(), std::filesystem::perms::owner_all);
    std::string expected = "P4\n1728 40\n";
    for (const std::string &line : page)
        expected += line;
    EXPECT_TRUE(read_file(dir / "page-001.pbm") == expected);
    EXPECT_TRUE(read_file(other) == read_file(dir / "mmr") && std::filesystem::is_symlink(dir / "link"));
    stat(other.c_str(), &after);
    EXPECT_TRUE(after.st_uid == before.st_uid && after.st_gid == before.st_gid);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(names_in(dir.path()), "cut link mh mh-to-mr mmr mr other page-001.pbm pipe short");
}

}  // namespace faxtray
