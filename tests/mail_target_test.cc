#include "deliver/mail_target.h"

#include <gtest/gtest.h>

#include <string>

#include "deliver/mail_agent.h"
#include "support/capture.h"

namespace faxtray {

TEST(MailTarget, AddressIsWhatStandsBetweenSchemeAndParameters)
{
    const std::string longest(255, 'a'), too_long = "mailto://" + longest + "b;x=1";
    const struct {
        const char *target;
        std::string address;
    } rows[] = {{"jdoe", "jdoe"},
                {"jdoe;x=1", "jdoe;x=1"},
                {"mailto://jdoe;x=1", "jdoe"},
                {"any://a@b.example", "a@b.example"},
                {too_long.c_str(), longest},
                {"mailto://", "none"},
                {"mailto://;x=1", "none"},
                {"", "none"},
                {nullptr, "none"}};
    for (const auto &row : rows) {
        capture_stderr printed;
        const char *address = get_mail_address(row.target);
        EXPECT_EQ(address ? address : "none", row.address) << (row.target ? row.target : "null");
        EXPECT_EQ(printed.text(), address ? "" : "get_mail_address: Null user address\n");
    }
}

TEST(MailTarget, HeadersStayOneLine)
{
    EXPECT_EQ(header_value("a\r\nb: c\n"), "a  b: c ");
}

TEST(MailTarget, ParametersMayBeQuotedOrEmptyAndAreCutToTheBuffer)
{
    const struct {
        const char *target, *attribute, *value;  // null: not there
    } rows[] = {{"mailto://a;name=\"x;y\";b=2", "name", "x;y"},
                {"mailto://a;name='x\"y'", "name", "x\"y"},
                {"mailto://a;name=x;b=2", "b", "2"},
                {"mailto://a;name=", "name", ""},
                {"mailto://a;name=\"x;y", "name", "x;y"},
                {"mailto://a;name=1234567890", "name", "1234567"},
                {"mailto://a;names=x", "name", nullptr},
                {"mailto://name=x", "name", nullptr}};
    for (const auto &row : rows) {
        char value[8] = "before";
        EXPECT_EQ(get_mail_param(row.target, row.attribute, value, sizeof value), row.value ? 1 : 0)
            << row.target;
        EXPECT_STREQ(value, row.value ? row.value : "before") << row.target;
    }
    capture_stderr printed;
    EXPECT_EQ(get_mail_param("", "name", nullptr, 0) + get_mail_param("mailto://a", nullptr, nullptr, 0), 0);
    EXPECT_EQ(printed.text(),
              "get_mail_param: Null user address\nget_mail_param: Null parameter attribute\n");
}

}  // namespace faxtray
