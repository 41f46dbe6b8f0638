#include "faxfile/fax_header.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/wire.h"

namespace faxtray {

// A fax file of that text block, with or without its terminator, and page data.
static std::string fax_file(const std::string &text, const std::string &pages = "PAGE")
{
    return "\xBA\xDB\xAD\x16" + word(static_cast<uint32_t>(text.size())) + text + pages;
}

// The pairs in that file and the messages about it, which both standard streams get.
static std::pair<std::string, std::string> read_bytes(const std::string &bytes)
{
    temp_dir dir;
    unique_fd fd(open(dir.write("fax", bytes).c_str(), O_RDONLY));
    lseek(fd.get(), 3, SEEK_SET);
    capture_stdout out;
    capture_stderr err;
    fax_header_ptr list(read_fax_header(fd.get()));
    std::string messages = err.text();
    EXPECT_EQ(out.text(), messages);
    EXPECT_EQ(!list, !messages.empty());

    // From memory, exactly as large so that the address sanitizer watches the edge, the same is found.
    std::vector<char> block(bytes.begin(), bytes.end());
    const char *names[] = {list && list->next ? list->next->name : "none", "none"},
               *values[] = {"unset", "unset"};
    EXPECT_EQ(find_fax_header_values(block.data(), block.size(), names, values, 2), list != nullptr);
    for (int i = 0; i < 2; i++)
        EXPECT_STREQ(values[i], get_fax_header_value(list.get(), names[i])) << names[i];

    // From the file without a list, too, with the same messages.
    capture_stdout quiet;
    capture_stderr again;
    const c_string text = read_fax_header_values(fd.get(), names, values, 2);
    EXPECT_EQ(again.text(), messages);
    EXPECT_EQ(!text, !list);
    for (int i = 0; i < 2 && text; i++)
        EXPECT_STREQ(values[i], get_fax_header_value(list.get(), names[i])) << names[i];
    std::string pairs;
    for (const fax_header_t *pair = list.get(); pair; pair = pair->next)
        pairs += std::string(pair->name) + "=" + pair->value + "|";
    return {pairs, messages};
}

TEST(FaxHeader, ReadsTheTextBlockLineByLine)
{
    using namespace std::string_literals;
    const std::pair<std::string, std::string> rows[] = {
        {"EMPTY:\n\n\nLAST:no line feed\x1D", "EMPTY=|LAST=no line feed|"},
        {":lost\nA:1\nB:2\nA:3\n\x1D", "A=3|B=2|"},
        {"A:\x1D inside\nB: \t\x80\xFF\n\x1D", "A=\x1D inside|B= \t\x80\xFF|"},
        {"A:cut\0 here\n\0:lost\nB:2\n\x1D"s, "A=cut|B=2|"}};
    for (const auto &[text, list] : rows)
        EXPECT_EQ(read_bytes(fax_file(text)).first, list);
}

// Names are found among few by a walk, among many by an index.
TEST(FaxHeader, FindsRepeatedNamesAmongMany)
{
    std::string text, list;
    for (const std::string value : {"old", "new"})
        for (int i = 0; i < 40; i++)
            text += "N" + std::to_string(i) + ":" + value + "\n";
    for (int i = 0; i < 40; i++)
        list += "N" + std::to_string(i) + "=new|";
    EXPECT_EQ(read_bytes(fax_file(text + "\x1D")).first, list);
}

TEST(FaxHeader, TheMagicMakesAFax)
{
    temp_dir dir;
    for (auto [bytes, is_fax] :
         {std::pair("\xBA\xDB\xAD\x16", 1), {"\xBA\xDB\xAD", 0}, {"\xBA\xDB\xAD\x17", 0}})
        EXPECT_EQ(is_corvane_fax(dir.write("fax", bytes).c_str()), is_fax);
    EXPECT_EQ(is_corvane_fax(dir.path().c_str()), 0);
}

TEST(FaxHeader, ReportsOnBothStreamsWhatIsWrong)
{
    const std::string bad = "read_fax_header: Bad fax file: ";
    const std::pair<std::string, std::string> rows[] = {
        {"\xBA\xDB\xAD\x16zzz", bad + "Too Small\n"},
        {"\xBA\xDB\xAD\x17zzzzzzzz", bad + "Bad Magic Number\n"},
        {fax_file(""), bad + "Bad Header length\n"},
        {"\xBA\xDB\xAD\x16\xFF\xFF\xFF\xFF:1\n\x1D", bad + "Corrupted header\n"},
        {fax_file(":1\n\x1D"), "read_fax_header: Empty Header - probably corrupted\n"},
        {fax_file("A:1\nno pair\nB:2\n\x1D"), "set_fax_header_var: Bad attr-value pair: [no pair]\n"
                                              "read_fax_header: set_fax_header_string failure\n"}};
    for (const auto &[file, messages] : rows)
        EXPECT_EQ(read_bytes(file).second, messages);
}

TEST(FaxHeader, DamageIsRefusedWhereverItIs)
{
    const std::string header = fax_file("#PAGES:12\nSENDER_FAX#:+49 1\n\x1D", "");
    for (size_t at : {0, 1, 2, 3, 4, 5, 6, 7, static_cast<int>(header.size()) - 1}) {
        std::string damaged = header;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x41);
        EXPECT_EQ(read_bytes(damaged).first, "") << at;
    }
    for (size_t n = 0; n <= header.size(); n++)
        EXPECT_EQ(read_bytes(header.substr(0, n)).first.empty(), n < header.size()) << n;
}

// And a header that would not read back is not written over one that does.
TEST(FaxHeader, WritesWhatItReads)
{
    temp_dir dir;
    std::string path = dir.write("fax", std::string(80, 'x'));
    fax_header_ptr list(new_fax_header("#PAGES", "1"));
    EXPECT_EQ(set_fax_header_string(list.get(), "T30_SUB_FRAME:12:34"), 1);
    EXPECT_EQ(set_fax_header_av(list.get(), "EMPTY", nullptr), 1);
    EXPECT_EQ(set_fax_header_av(list.get(), "#PAGES", "22"), 1);
    unique_fd fd(open(path.c_str(), O_RDWR));
    lseek(fd.get(), 7, SEEK_SET);
    EXPECT_EQ(write_fax_header(fd.get(), list.get()), 1);
    capture_stdout quiet;
    capture_stderr err;
    EXPECT_EQ(set_fax_header_av(list.get(), "", "no name"), -1);
    for (auto [name, value] : {std::pair("VALUE", "two\nlines"), {"CO:LON", ""}, {"TWO\nLINES", ""}}) {
        fax_header_ptr bad(new_fax_header(name, value));
        EXPECT_EQ(write_fax_header(fd.get(), bad.get()), -1) << name;
    }
    EXPECT_TRUE(
        err.text().starts_with("new_fax_header: Ignoring null attr\nwrite_fax_header: Can't create fax "
                               "file header: Invalid argument\n"));
    const std::string header = fax_file("#PAGES:22\nT30_SUB_FRAME:12:34\nEMPTY:\n\x1D", "");
    EXPECT_EQ(read_file(path), header + std::string(80 - header.size(), 'x'));
}

TEST(FaxHeader, DecodesResolutionAndCompression)
{
    capture_stdout quiet;
    for (auto [pair, resolution, compression] : {std::tuple("RESOLUTION: 3 lines", 2, 0),
                                                 {"RESOLUTION:2", -1, 0},
                                                 {"COMPRESSION:3", -1, 3},
                                                 {"COMPRESSION:x", -1, -1}}) {
        fax_header_ptr list(new_fax_header("#PAGES", "1"));
        set_fax_header_string(list.get(), pair);
        EXPECT_EQ(get_vertical_resolution(list.get()), resolution) << pair;
        EXPECT_EQ(get_compression_mode(list.get()), compression) << pair;
    }
}

}  // namespace faxtray
