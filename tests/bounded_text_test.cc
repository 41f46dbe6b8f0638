#include "daemon/bounded_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace faxtray {

TEST(BoundedText, EndsInDotsOnceAPieceDoesNotFit)
{
    const struct {
        std::vector<const char *> pieces;
        const char *text, *without_comma;
    } rows[] = {
        {{}, "", ""},
        {{"Al", ","}, "Al,", "Al"},
        {{"Al,Bea,,"}, "Al,Bea,,", "Al,Bea,"},
        {{"Al,Bea,C", "ara"}, "Al,Bea,Cara", "Al,Bea,Cara"},  // eleven characters and the terminator
        {{"Al,Bea,Car", ","}, "Al,Bea,Car,", "Al,Bea,Car"},
        {{"Al,Bea,Cara", ","}, "Al,Bea,C...", "Al,Bea,C..."},             // one more
        {{"Al,", "Beatrice Smith", "Cy"}, "Al,Beatr...", "Al,Beatr..."},  // nothing after the dots
        {{"Al,Bea,Cara", "", "Dee", ""}, "Al,Bea,C...", "Al,Bea,C..."},
    };
    for (const auto &row : rows) {
        char buffer[13];
        buffer[12] = '#';
        bounded_text message(buffer, 12);
        for (const char *piece : row.pieces)
            message.append(piece);
        EXPECT_STREQ(buffer, row.text);
        message.drop_last(',');
        EXPECT_STREQ(buffer, row.without_comma);
        EXPECT_EQ(buffer[12], '#');
    }
}

}  // namespace faxtray
