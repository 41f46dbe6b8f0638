#include "faxfile/fax_params.h"

#include <gtest/gtest.h>

#include <climits>

namespace faxtray {

TEST(FaxParams, CodesAndCharactersAreEachOthersInverse)
{
    const struct {
        char (*to_char)(int);
        int (*to_code)(signed char), codes;
    } rows[] = {{VRtoascii, asciitoVR, 6}, {BRtoascii, asciitoBR, 7}, {WDtoascii, asciitoWD, 6},
                {LNtoascii, asciitoLN, 4}, {DFtoascii, asciitoDF, 5}, {ECtoascii, asciitoEC, 4},
                {BFtoascii, asciitoBF, 3}, {STtoascii, asciitoST, 9}};
    for (const auto &[to_char, to_code, codes] : rows) {
        int characters = 0;
        for (int c = SCHAR_MIN; c <= SCHAR_MAX; c++)
            characters += to_code(static_cast<signed char>(c)) >= 0;
        EXPECT_EQ(characters, codes);
        for (int code = 0; code < codes; code++)
            EXPECT_EQ(to_code(to_char(code)), code);
        EXPECT_TRUE(!to_char(-1) && !to_char(codes));
        EXPECT_EQ(to_char(codes - 1), ' ') << "not known";
    }
}

}  // namespace faxtray
