#include "faxfile/fax_params.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace faxtray {

// Every code has the character at its place, every other character and code is refused.
TEST(FaxParams, CodesAndCharactersAreEachOthersInverse)
{
    struct {
        const char *name;
        char (*to_char)(int);
        int (*to_code)(signed char);
        std::string characters;
    } rows[] = {
        {"VR", VRtoascii, asciitoVR, "01345 "}, {"BR", BRtoascii, asciitoBR, "012345 "},
        {"WD", WDtoascii, asciitoWD, "01234 "}, {"LN", LNtoascii, asciitoLN, "012 "},
        {"DF", DFtoascii, asciitoDF, "0123 "},  {"EC", ECtoascii, asciitoEC, "012 "},
        {"BF", BFtoascii, asciitoBF, "01 "},    {"ST", STtoascii, asciitoST, "01234567 "},
    };
    for (const auto &row : rows) {
        for (int code : {INT_MIN, -1, static_cast<int>(row.characters.size()), 256, INT_MAX})
            EXPECT_EQ(row.to_char(code), 0) << row.name << " " << code;
        for (size_t code = 0; code < row.characters.size(); code++)
            EXPECT_EQ(row.to_char(static_cast<int>(code)), row.characters[code]) << row.name << " " << code;
        for (int c = SCHAR_MIN; c <= SCHAR_MAX; c++) {
            size_t at = row.characters.find(static_cast<char>(c));
            int code = at == std::string::npos ? -1 : static_cast<int>(at);
            EXPECT_EQ(row.to_code(static_cast<signed char>(c)), code) << row.name << " character " << c;
        }
    }
}

TEST(FaxParams, NamesAreForPeople)
{
    EXPECT_STREQ(VRtostring(0), "Normal (98 lpi)");
    EXPECT_STREQ(VRtostring(4), "600 lpi");
    EXPECT_STREQ(DFtostring(2), "UMMR (Uncompressed MMR)");
    for (int code : {-1, 5, 6})
        EXPECT_STREQ(VRtostring(code), "Unknown Vertical Resolution") << code;
    for (int code : {-1, 4, 5})
        EXPECT_STREQ(DFtostring(code), "Unknown Compression Format") << code;
}

}  // namespace faxtray
