#include "util/empty_format.h"

#include <gtest/gtest.h>

namespace faxtray {

TEST(EmptyFormat, PrintsEveryArgumentAsNothing)
{
    const struct {
        const char *format, *text;
    } rows[] = {
        {"plain", "plain"},
        {"100%% of %s, %d, %n%x.", "100% of (null), 0, 0."},
        {"%1000000d|%-5.3s|%*.*f|%lld %hhu %#zo", "0|(null)|0|0 0 0"},
        {"%c|%p", "|(nil)"},
        {"50% off", "500ff"},  // "% o", as printf reads it
        {"%", "%"},
        {"%5", "%5"},
        {"%y %1$d %\xC3\xA9", "%y %1$d %\xC3\xA9"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(print_empty_format(row.format), row.text) << row.format;
    EXPECT_EQ(print_empty_format(nullptr), "");
}

}  // namespace faxtray
