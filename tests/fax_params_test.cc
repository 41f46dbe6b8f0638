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
        for (int c = SCHAR_MIN; c <= SCHAR_MAX; c++) {
            size_t at = row.characters.find(static_cast<char>(c));
            int code = at == std::string::npos ? -1 : static_cast<int>(at);
            EXPECT_EQ(row.to_code(static_cast<signed char>(c)), code) << row.name << " character " << c;
            EXPECT_TRUE(code < 0 || row.to_char(code) == c) << row.name << " " << code;
        }
    }
}

}  // namespace faxtray
