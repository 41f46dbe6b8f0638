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
        {"%5d|%-5d|%05d|%+d|% i|%.3u|%.0x|", "    0|0    |00000|+0| 0|000||"},
        {"%lld %hhu %zo %#o %#.0o", "0 0 0 0 0"},
        {"%f %.2f %8.1f %e %G %a", "0.000000 0.00      0.0 0.000000e+00 0 0x0p+0"},
        {"%8s|%-8s|%.3s|%c|%p", "  (null)|(null)  |||(nil)"},
        {"%*d|%-*.*f", "0|0"},
        {"50% off", "500ff"},  // "% o", as printf reads it
        {"%", "%"},
        {"%5", "%5"},
        {"%y %1$d %\xC3\xA9", "%y %1$d %\xC3\xA9"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(print_empty_format(row.format), row.text) << row.format;
    EXPECT_EQ(print_empty_format(nullptr), "");
}

TEST(EmptyFormat, WidthsAreBounded)
{
    EXPECT_EQ(print_empty_format("%1000000d").size(), 4095u);
    EXPECT_EQ(print_empty_format("%99999999999999999999.99999999999999999999f").size(), 4097u);
}

}  // namespace faxtray
