// Fax files from one coding to another, and what must not happen to those that cannot be.
#include "codec/change_format.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "../fuzz/fax_file.h"
#include "support/capture.h"
#include "support/daemon.h"
#include "support/pages.h"
#include <csignal>

namespace faxtray {

static int files_in(const temp_dir &dir)
{
    const std::filesystem::directory_iterator entries(dir.path());
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

TEST(ChangeFormat, KeepsTheLinesOfAllPages)
{
    const auto samples = sample_pages(120);
    std::vector<std::string> files;
    for (const char *name : {"letter-mh.fax", "form-mr.fax", "letter-mmr.fax"})
        files.push_back(read_file(std::string(TEST_DATA "/faxes/") + name));
    for (int df : {0, 1, 3}) {
        std::vector<std::string> coded_pages;
        for (const sample_page &page : samples)
            coded_pages.push_back(encode(page.lines, df));
        files.push_back(fax_file_of(coded_pages, df, "A:b:c\n#PAGES: 6\nRESOLUTION:1\n"));
    }
    static int progress;
    for (const std::string &file : files) {
        for (int target : {0, 1, 3}) {
            temp_dir dir;
            const std::string path = dir.write("fax", file);
            std::vector<page_t> before = pages_of(path);
            fax_pages_t fax;
            ASSERT_TRUE(open_fax_pages(path, &fax));
            SCOPED_TRACE(std::to_string(fax.df) + " to " + std::to_string(target));
            const int from = fax.df;
            progress = 0;
            ASSERT_EQ(t4dec_change_format(path.c_str(), target, 0, [] { progress++; }), 1);
            EXPECT_EQ(files_in(dir), 1);
            if (target == from) {
                EXPECT_TRUE(read_file(path) == file);
                continue;
            }
            EXPECT_EQ(progress, static_cast<int>(before.size()));
            ASSERT_TRUE(open_fax_pages(path, &fax));
            EXPECT_EQ(fax.df, target);
            // One white line more at the end of MH, which no end of line follows, and one at its top.
            for (page_t &page : before) {
                if (target == 0)
                    page.insert(page.begin(), white_line());
            }
            EXPECT_TRUE(pages_of(path) == before);
        }
    }
}

TEST(ChangeFormat, TakesTheHeadersWordForTheNumberOfPages)
{
    const page_t page = sample_pages(40)[0].lines;
    const std::string two_pages[] = {encode(page, 1), encode(page, 1)};
    const struct {
        const char *attribute;
        size_t pages;
    } rows[] = {{"", 0}, {"#PAGES:0\n", 0}, {"#PAGES:x\n", 0}, {"#PAGES:  1 of 2\n", 1}, {"#PAGES:2\n", 2}};
    for (const auto &row : rows) {
        temp_dir dir;
        const std::string head = std::string("X:1\nRESOLUTION: 0\n") + row.attribute,
                          path = dir.write("fax", fax_file_of({two_pages[0], two_pages[1]}, 1, head));
        ASSERT_EQ(t4dec_change_format(path.c_str(), 3, 0, nullptr), 1);
        const std::vector<std::string> kept(row.pages, encode(page, 3));
        EXPECT_TRUE(read_file(path) == fax_file_of(kept, 3, head)) << row.attribute;
    }
}

TEST(ChangeFormat, LeavesWhatItRefusesAsItWas)
{
    const std::string page = encode(sample_pages(40)[0].lines, 1),
                      good = fax_file_of({page}, 1, "#PAGES:1\nRESOLUTION:1\n"),
                      me = "t4dec_change_format: ", huge("\xFF\xFF\xFF\xFFrest", 8);
    const struct {
        std::string file;
        int target;
        std::string message;
    } rows[] = {
        {good, 2, me + "Unsupported compression: 2.\n"},
        {good, 4, me + "Unsupported compression: 4.\n"},
        {good, -1, me + "Unsupported compression: -1.\n"},
        {"", 3, me + "Bad fax file: "},
        {"\xBA\xDB\xAD\x16" + huge, 3, me + "Bad fax file: "},
        {fax_file_of({page}, 7, "#PAGES:1\nRESOLUTION:1\n"), 3, me + "Could not determine compression: "},
        {fax_file_of({page}, 1, "#PAGES:1\n"), 3, me + "Could not determine resolution: "},
        {fax_file_of({page}, 1, "#PAGES:1\nRESOLUTION:3\n"), 3,
         me + "Can't handle type \"\2\" resolution yet.\n"},
        {fax_file_of({page}, 1, "#PAGES:2\nRESOLUTION:1\n"), 3, me + "Short read on data length:  "},
        {fax_file_of({page}, 1, "#PAGES:2\nRESOLUTION:1\n") + huge, 3, me + "Failure reading data from "},
        {fax_file_of({page}, 1, "#PAGES:2\nRESOLUTION:1\n") + huge, 3, "read_len=4\n"},
        {good.substr(0, good.size() - 1), 3, "read_len=" + std::to_string(page.size() - 1) + "\n"},
        {fax_file_of({page, ""}, 1, "#PAGES:2\nRESOLUTION:1\n"), 3, ""},  // MR takes no empty page
        {fax_file_of({page}, 2, "#PAGES:1\nRESOLUTION:1\n"), 3, ""},      // nor is there such a decoder
        {fax_file_of({page}, 4, "#PAGES:1\nRESOLUTION:1\n"), 3, ""},
    };
    for (const auto &row : rows) {
        temp_dir dir;
        const std::string path = dir.write("fax", row.file);
        capture_stdout out;
        capture_stderr err;
        EXPECT_EQ(t4dec_change_format(path.c_str(), row.target, 0, nullptr), 0) << row.message;
        const std::string told = err.text();
        EXPECT_NE(told.find(row.message), std::string::npos) << row.message << "\n" << told;
        EXPECT_TRUE(read_file(path) == row.file) << row.message;
        EXPECT_EQ(files_in(dir), 1) << row.message;
    }
}

TEST(ChangeFormat, SurvivesADiskThatFills)
{
    const std::string page = encode(sample_pages(200)[3].lines, 3),
                      file = fax_file_of({page, page, page}, 3, "#PAGES:3\nRESOLUTION:1\n");
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    for (rlim_t room : {rlim_t{10}, rlim_t{30}, rlim_t{41}, rlim_t{5000}, rlim_t{page.size() + 100}}) {
        temp_dir dir;
        const std::string path = dir.write("fax", file);
        // Both gone before the output may not grow: they write to files.
        auto out = std::make_unique<capture_stdout>();
        auto err = std::make_unique<capture_stderr>();
        const rlimit small = {room, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        const int result = t4dec_change_format(path.c_str(), 1, 0, nullptr);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        out.reset();
        err.reset();
        EXPECT_EQ(result, 0) << room;
        EXPECT_TRUE(read_file(path) == file) << room;
        EXPECT_EQ(files_in(dir), 1) << room;
    }
    signal(SIGXFSZ, handler);
}

TEST(Faxconv, DoesWhatItSaysAndTellsHowItWent)
{
    temp_dir dir;
    const page_t page = sample_pages(40)[0].lines;
    const std::string mr = fax_file_of({encode(page, 1)}, 1, "#PAGES:1\nRESOLUTION:1\n");
    dir.write("mr", mr);
    dir.write("mh", fax_file_of({encode(page, 0)}, 0, "#PAGES:1\nRESOLUTION:1\n"));
    dir.write("cut", mr.substr(0, mr.size() - 1));
    std::filesystem::permissions(dir / "mr", std::filesystem::perms::owner_all);
    const struct {
        const char *arguments;
        int status;
        const char *told;  // a piece of what it prints
    } rows[] = {
        {"--to mmr mr mmr", 0, ""},
        {"--to mmr mr mmr", 0, ""},  // replaced
        {"--to mmr cut mh", 1, "t4dec_change_format: data_len="},
        {"--to . mr mmr", 1, "it is no regular file"},
        {"--to none/such mr mmr", 1, "can't create a file beside it"},
        {"mh mr", 0, "every page gets a white line"},
        {"--info mh", 0, "(Fine (196 lpi))\n"},
        {"--info --json cut", 1, "\"whole\": false"},
        {"--pbm page mmr", 0, ""},
        {"--pbm page cut", 1, "page 1 of 1: "},
        {"nothing mr", 1, "No such file or directory"},
        {"page-001.pbm mr", 1, "not a fax file"},
        {"mr umr", 2, "umr"},
        {"mr", 2, "CODING"},
        {"--info mr mh", 2, ""},
        {"--json mr mh", 2, ""},
    };
    for (const auto &row : rows) {
        const ended_t ended = run_shell("cd " + dir.path() + " && " FAXCONV " " + row.arguments);
        EXPECT_EQ(ended.status, row.status) << row.arguments << "\n" << ended.output;
        EXPECT_NE(ended.output.find(row.told), std::string::npos) << row.arguments << "\n" << ended.output;
    }
    EXPECT_TRUE(read_file(dir / "mr") == mr);
    EXPECT_TRUE(read_file(dir / "mmr") == fax_file_of({encode(page, 3)}, 3, "#PAGES:1\nRESOLUTION:1\n"));
    EXPECT_EQ(std::filesystem::status(dir / "mmr").permissions(), std::filesystem::perms::owner_all);
    std::string expected = "P4\n1728 40\n";
    for (const std::string &line : page)
        expected += line;
    EXPECT_TRUE(read_file(dir / "page-001.pbm") == expected);
    EXPECT_EQ(files_in(dir), 5);
}

}  // namespace faxtray
