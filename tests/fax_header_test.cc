#include "faxfile/fax_header.h"

#include <endian.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/capture.h"
#include "support/temp_dir.h"

namespace faxtray {

// A fax file of that text block, terminator included in it or not, with page data behind.
static std::string fax_file(const std::string &text, const std::string &pages = "PAGE")
{
    uint32_t n = static_cast<uint32_t>(text.size());
    std::string file = "\xBA\xDB\xAD\x16";
    for (int shift = 24; shift >= 0; shift -= 8)
        file += static_cast<char>(n >> shift);
    return file + text + pages;
}

static std::string shown(const fax_header_t *list)
{
    std::string text;
    for (; list; list = list->next)
        text += std::string(list->name) + "=" + list->value + "|";
    return text;
}

// What reading that file gives, the messages on standard error, and that standard output had the same.
struct reading {
    std::string list, messages;
    off_t position;
};

static reading read_bytes(const std::string &bytes)
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
    std::vector<const char *> names = {"none"}, values = {"unset"};
    for (const fax_header_t *node = list.get(); node && names.size() < 8; node = node->next)
        names.push_back(node->name);
    values.resize(names.size());
    EXPECT_EQ(find_fax_header_values(block.data(), block.size(), names.data(), values.data(), names.size()),
              list != nullptr);
    for (size_t i = 0; i < names.size(); i++)
        EXPECT_STREQ(values[i], get_fax_header_value(list.get(), names[i])) << names[i];
    return {shown(list.get()), messages, lseek(fd.get(), 0, SEEK_CUR)};
}

TEST(FaxHeader, ReadsTheTextBlockLineByLine)
{
    using namespace std::string_literals;
    struct {
        std::string text, list;
    } rows[] = {
        {"#PAGES:2\nRESOLUTION:1\n\x1D", "#PAGES=2|RESOLUTION=1|"},
        {"T30_SUB_FRAME:12:34\n\x1D", "T30_SUB_FRAME=12:34|"},
        {"EMPTY:\n\n\nLAST:no line feed\x1D", "EMPTY=|LAST=no line feed|"},
        {"A:1\nB:2\nA:3\n\x1D", "A=3|B=2|"},
        {":lost\nA:1\n\x1D", "A=1|"},
        {"A:\x1D inside\nB: \t\x80\xFF\n\x1D", "A=\x1D inside|B= \t\x80\xFF|"},
        {"A:cut\0 here\n\0:lost\nB:2\n\x1D"s, "A=cut|B=2|"},
    };
    for (const auto &row : rows) {
        reading got = read_bytes(fax_file(row.text));
        EXPECT_EQ(got.list, row.list);
        EXPECT_EQ(got.position, static_cast<off_t>(8 + row.text.size())) << "page data follow";
    }
}

TEST(FaxHeader, TellsOnBothStreamsWhatIsWrong)
{
    const std::string bad = "read_fax_header: Bad fax file: ";
    struct {
        std::string file, messages;
    } rows[] = {
        {"", bad + "Too Small\n"},
        {"\xBA\xDB\xAD\x16zzz", bad + "Too Small\n"},
        {"\xBA\xDB\xAD\x17zzzzzzzz", bad + "Bad Magic Number\n"},
        {fax_file(""), bad + "Bad Header length\n"},
        {fax_file("A:1\n\x1D").substr(0, 11), bad + "Corrupted header\n"},
        {fax_file("A:1\nB:2\n"), bad + "Corrupted header\n"},
        {"\xBA\xDB\xAD\x16\xFF\xFF\xFF\xFF"
         "A:1\n\x1D",
         bad + "Corrupted header\n"},
        {fax_file("\x1D"), "read_fax_header: Empty Header - probably corrupted\n"},
        {fax_file(":1\n\x1D"), "read_fax_header: Empty Header - probably corrupted\n"},
        {fax_file("A:1\nno pair\nB:2\n\x1D"), "set_fax_header_var: Bad attr-value pair: [no pair]\n"
                                              "read_fax_header: set_fax_header_string failure\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(read_bytes(row.file).messages, row.messages);
}

TEST(FaxHeader, DamageIsRefusedWhereverItIs)
{
    const std::string header = fax_file("#PAGES:12\nSENDER_FAX#:+49 1\n\x1D", "");
    for (size_t at = 0; at < 8; at++) {
        std::string damaged = header;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x41);
        EXPECT_EQ(read_bytes(damaged).list, "") << at;
    }
    for (size_t n = 0; n <= header.size(); n++)
        EXPECT_EQ(read_bytes(header.substr(0, n)).list.empty(), n < header.size()) << n;
}

TEST(FaxHeader, HoldsManyAttributesInOrder)
{
    std::string text, list;
    for (const char *value : {"old", "new"})
        for (int i = 0; i < 100000; i++)
            text.append("N").append(std::to_string(i)).append(":").append(value).append("\n");
    for (int i = 0; i < 100000; i++)
        list.append("N").append(std::to_string(i)).append("=new|");
    EXPECT_TRUE(read_bytes(fax_file(text + "\x1D")).list == list);
}

TEST(FaxHeader, WritesWhatItReads)
{
    temp_dir dir;
    std::string path = dir.write("fax", std::string(80, 'x'));
    fax_header_ptr list(new_fax_header("#PAGES", "1"));
    EXPECT_EQ(set_fax_header_string(list.get(), "T30_SUB_FRAME:12:34"), 1);
    EXPECT_EQ(set_fax_header_av(list.get(), "EMPTY", nullptr), 1);
    EXPECT_EQ(set_fax_header_av(list.get(), "#PAGES", "22"), 1);
    const std::string header = fax_file("#PAGES:22\nT30_SUB_FRAME:12:34\nEMPTY:\n\x1D", "");

    unique_fd fd(open(path.c_str(), O_RDWR));
    EXPECT_EQ(write_fax_header(fd.get(), list.get()), 1);
    EXPECT_EQ(read_file(path), header + std::string(80 - header.size(), 'x'));
    fax_header_ptr read_back(read_fax_header(fd.get()));
    EXPECT_EQ(shown(read_back.get()), shown(list.get()));
    EXPECT_STREQ(get_fax_header_value(list.get(), "EMPTY"), "");
    EXPECT_EQ(get_fax_header_value(list.get(), "#pages"), nullptr);

    // A header that would not read back is not written over one that does; nor is a full disk success.
    capture_stdout out;
    capture_stderr err;
    EXPECT_EQ(set_fax_header_string(list.get(), "pair"), -1);
    EXPECT_EQ(set_fax_header_av(list.get(), "", "x"), -1);
    EXPECT_EQ(set_fax_header_av(list.get(), "EMPTY", "two\nlines"), 1);
    EXPECT_EQ(write_fax_header(fd.get(), list.get()), -1);
    unique_fd full(open("/dev/full", O_WRONLY));
    EXPECT_EQ(write_fax_header(full.get(), read_back.get()), -1);
    EXPECT_EQ(write_fax_header(-1, read_back.get()), -1);
    std::string messages = err.text();
    EXPECT_EQ(messages, "set_fax_header_var: Bad attr-value pair: [pair]\n"
                        "new_fax_header: Ignoring null attr\n"
                        "write_fax_header: Can't create fax file header: Invalid argument\n"
                        "write_fax_header: Can't create fax file header: No space left on device\n"
                        "write_fax_header: Can't rewind file: Bad file descriptor\n");
    EXPECT_EQ(out.text(), messages);
    EXPECT_EQ(read_file(path).substr(0, header.size()), header);
    EXPECT_EQ(write_fax_header(fd.get(), nullptr), 1);
    EXPECT_EQ(read_file(path).substr(0, 9), fax_file("\x1D", ""));
}

TEST(FaxHeader, DecodesResolutionAndCompression)
{
    struct {
        const char *pair;
        int resolution, compression;
        const char *messages;
    } rows[] = {
        {"RESOLUTION:1", 1, 0, ""},
        {"RESOLUTION: 3 lines", 2, 0, ""},
        {"RESOLUTION:2", -1, 0, "WARNING: Invalid RESOLUTION value in header: [2]\n"},
        {"RESOLUTION: ", -1, 0, "WARNING: Invalid RESOLUTION value in header: [ ]\n"},
        {"RESOLUTION:", -1, 0, "WARNING: No RESOLUTION value in header\n"},
        {"COMPRESSION:3", -1, 3, "WARNING: No RESOLUTION value in header\n"},
        {"COMPRESSION:x", -1, -1,
         "WARNING: No RESOLUTION value in header\nWARNING: Invalid COMPRESSION value in header: [x]\n"},
    };
    for (const auto &row : rows) {
        fax_header_ptr list(new_fax_header("#PAGES", "1"));
        set_fax_header_string(list.get(), row.pair);
        capture_stdout out;
        EXPECT_EQ(get_vertical_resolution(list.get()), row.resolution) << row.pair;
        EXPECT_EQ(get_compression_mode(list.get()), row.compression) << row.pair;
        EXPECT_EQ(out.text(), row.messages) << row.pair;
    }

    fax_header_ptr list(new_fax_header("COMPRESSION", "0"));
    capture_stdout out;
    EXPECT_EQ(set_vertical_resolution(list.get(), 2), 1);
    EXPECT_EQ(set_compression_mode(list.get(), 3), 1);
    EXPECT_EQ(set_vertical_resolution(list.get(), 6), -1);
    EXPECT_EQ(set_compression_mode(list.get(), -1), -1);
    EXPECT_EQ(set_compression_mode(nullptr, 1), -1);
    EXPECT_EQ(shown(list.get()), "COMPRESSION=3|RESOLUTION=3|");
    EXPECT_EQ(out.text(), "set_vertical_resolution: Invalid resolution: [6]\n"
                          "set_compression_mode: invalid mode: -1\n"
                          "set_compression mode: Can't set mode\n");
}

TEST(FaxHeader, KnowsAFaxByItsMagic)
{
    temp_dir dir;
    std::string fax = dir.write("fax", "\xBA\xDB\xAD\x16"), text = dir.write("text", "text"),
                small = dir.write("small", "\xBA\xDB");
    trace_on trace;
    EXPECT_EQ(is_corvane_fax(fax.c_str()), 1);
    EXPECT_EQ(is_corvane_fax(text.c_str()), 0);
    EXPECT_EQ(is_corvane_fax(small.c_str()), 0);
    EXPECT_EQ(is_corvane_fax(dir.path().c_str()), 0);
    EXPECT_EQ(is_corvane_fax((dir / "none").c_str()), 0);
    const std::string bad = "is_corvane_fax: Bad fax file [";
    EXPECT_EQ(trace.text(), bad + text + "]: not a fax file\n" + bad + small + "]: not a fax file\n" + bad +
                                dir.path() + "]: not a file\n" + bad + (dir / "none") +
                                "]: No such file or directory\n");
}

// Page after page behind the header, each with its length before it, to the last byte of the file.
TEST(FaxHeader, SampleFaxesHoldThePagesTheyTellOf)
{
    struct {
        const char *name;
        int resolution, compression;
    } rows[] = {{"letter-mh.fax", 0, 0}, {"form-mr.fax", 1, 1}, {"letter-mmr.fax", 1, 3}};
    for (const auto &row : rows) {
        std::string path = std::string(TEST_DATA "/faxes/") + row.name, file = read_file(path);
        unique_fd fd(open(path.c_str(), O_RDONLY));
        fax_header_ptr list(read_fax_header(fd.get()));
        ASSERT_TRUE(list) << path;
        EXPECT_EQ(get_vertical_resolution(list.get()), row.resolution) << path;
        EXPECT_EQ(get_compression_mode(list.get()), row.compression) << path;
        size_t at = static_cast<size_t>(lseek(fd.get(), 0, SEEK_CUR));
        for (int page = std::stoi(get_fax_header_value(list.get(), "#PAGES")); page > 0; page--) {
            ASSERT_LE(at + 4, file.size()) << path;
            uint32_t length;
            file.copy(reinterpret_cast<char *>(&length), 4, at);
            at += 4 + be32toh(length);
        }
        EXPECT_EQ(at, file.size()) << path;
    }
}

}  // namespace faxtray
