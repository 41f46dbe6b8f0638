#include "client/mail_header.h"

#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/temp_dir.h"

namespace faxtray {

// RFC 2047: what is plain stays; else words of at most 75 characters, none of which ends within a character.
TEST(MailHeader, TextBecomesEncodedWords)
{
    const std::string
        euros = "\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC",
        seven = "=E2=82=AC=E2=82=AC=E2=82=AC=E2=82=AC=E2=82=AC=E2=82=AC=E2=82=AC";
    const struct {
        std::string text, header;
    } rows[] = {
        {"", ""},
        {"Fax from +99 555 0143, 2 pages", "Fax from +99 555 0143, 2 pages"},
        {"B\xC3\xBCro 1", "=?utf-8?q?B=C3=BCro_1?="},
        {"Fax\r\nBcc: all@example.com\r\n\r\n", "FaxBcc: all@example.com"},
        {"a\xFF\x1B\xC2\x9Bz", "=?utf-8?q?a=EF=BF=BD=EF=BF=BD=EF=BF=BDz?="},
        {"=?utf-8?q?x?=", "=?utf-8?q?=3D=3Futf=2D8=3Fq=3Fx=3F=3D?="},
        {" blanks ", "=?utf-8?q?_blanks_?="},
        {euros + euros, "=?utf-8?q?" + seven + "?=\n =?utf-8?q?" + seven + "?="},
        {std::string(61, 'x'), "=?utf-8?q?" + std::string(61, 'x') + "?="},
    };
    for (const auto &row : rows)
        EXPECT_EQ(header_text(row.text), row.header);
}

TEST(MailHeader, NamesAndParametersAreQuoted)
{
    EXPECT_EQ(header_mailbox("+99 555 0143"), "\"+99 555 0143\" <+995550143@fax.invalid>");
    EXPECT_EQ(header_mailbox("a \"b\\\" <c@d>,"), "\"a \\\"b\\\\\\\" <c@d>,\" <abcd@fax.invalid>");
    EXPECT_EQ(header_mailbox("\xE2\x82\xAC"), "=?utf-8?q?=E2=82=AC?= <fax@fax.invalid>");
    EXPECT_TRUE(
        header_mailbox(std::string(300, '7')).ends_with(" <" + std::string(64, '7') + "@fax.invalid>"));
    EXPECT_EQ(header_parameter("filename", "a \"b\\.pdf"), "; filename=\"a \\\"b\\\\.pdf\"");
    EXPECT_EQ(header_parameter("filename", "B\xC3\xBCro-1 a.pdf"), "; filename*=utf-8''B%C3%BCro-1%20a.pdf");
}

}  // namespace faxtray
