#include "deliver/mail_encoding.h"

#include <gtest/gtest.h>

#include <string>

#include "support/capture.h"
#include "support/daemon.h"
#include "util/owned.h"

namespace faxtray {

using encoder_t = int (*)(FILE *, FILE *);

static std::string encoded(encoder_t encode, const std::string &bytes)
{
    temp_dir dir;
    file_ptr in(fopen(dir.write("in", bytes).c_str(), "r")), out(fopen((dir / "out").c_str(), "w"));
    EXPECT_EQ(encode(in.get(), out.get()), 1);
    out.reset();
    return read_file(dir / "out");
}

// What `command` makes of the bytes on its standard input.
static std::string filtered(const std::string &command, const std::string &bytes)
{
    temp_dir dir;
    return run_shell("{ " + command + "; } <" + dir.write("in", bytes)).output;
}

static std::string bytes_of_all_values(size_t n)
{
    std::string bytes(n, '\0');
    for (uint32_t i = 0; i < n; i++)
        bytes[i] = static_cast<char>(i * 2654435761u >> 24);
    return bytes;
}

TEST(MailEncoding, KnownTexts)
{
    const struct {
        const char *text, *base64, *uuencode;
    } rows[] = {
        {"", "", "`\n"},
        {"f", "Zg==", "!9@``\n`\n"},
        {"fo", "Zm8=", "\"9F\\`\n`\n"},
        {"foo", "Zm9v", "#9F]O\n`\n"},
        {"foobar", "Zm9vYmFy", "&9F]O8F%R\n`\n"},
    };
    for (const auto &row : rows) {  // base64: RFC 4648 section 10
        EXPECT_EQ(encoded(encode_base64, row.text), row.base64);
        EXPECT_EQ(encoded(encode_uuencode, row.text), row.uuencode);
    }
}

TEST(MailEncoding, LinesAndBlocksEndWhereTheyShould)
{
    constexpr size_t block = 54 * 512, uu_block = 45 * 512;
    for (size_t n : {51ul, 52ul, 53ul, 54ul, 55ul, block - 1, block, 3 * block + 1}) {
        const std::string bytes = bytes_of_all_values(n);
        std::string expected = filtered("base64 -w 72", bytes);
        if (n % 54 != 0 && n % 54 < 52)  // coreutils end a short last line too
            expected.pop_back();
        EXPECT_TRUE(encoded(encode_base64, bytes) == expected) << n << " bytes of base64";
    }
    std::string lines, all;
    for (size_t n : {44ul, 45ul, 46ul, uu_block - 1, uu_block, 3 * uu_block + 1}) {
        const std::string bytes = bytes_of_all_values(n), text = encoded(encode_uuencode, bytes);
        EXPECT_EQ(text.size(), n / 45 * 62 + (n % 45 ? 2 + (n % 45 + 2) / 3 * 4 : 0) + 2) << n;
        EXPECT_EQ(text.find(' '), std::string::npos) << n;
        all += bytes;
        lines += text;
    }
    EXPECT_TRUE(filtered("python3 -c 'import binascii, sys\n"
                         "for line in sys.stdin.buffer: sys.stdout.buffer.write(binascii.a2b_uu(line))'",
                         lines) == all);
}

TEST(MailEncoding, ReadErrorIsAFailureAndAWriteErrorTheEnd)
{
    for (encoder_t encode : {encode_base64, encode_uuencode}) {
        file_ptr directory(fopen("/", "r")), null(fopen("/dev/null", "w")), full(fopen("/dev/full", "w")),
            endless(fopen("/dev/zero", "r"));
        trace_on trace;
        EXPECT_EQ(encode(directory.get(), null.get()), 0);
        EXPECT_NE(trace.text().find(": Problem reading image: Is a directory\n"), std::string::npos);
        EXPECT_EQ(encode(endless.get(), full.get()), 1) << "an endless input ends with the output";
    }
}

}  // namespace faxtray
