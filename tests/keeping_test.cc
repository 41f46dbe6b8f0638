// What the keeping of a server rests on: questions that may hang, addresses, and the text that Prometheus
// reads.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <stdexcept>

#include "client/status_command.h"
#include "rpc/host_address.h"
#include "util/timed_answer.h"

namespace faxtray {

TEST(TimedAnswer, IsWholeOrNone)
{
    const std::string large(300'000, '\0');  // more than a pipe holds
    EXPECT_EQ(timed_answer(30, [&] { return large; }), large);
    EXPECT_EQ(timed_answer(30, [] { return std::string(); }), "");
    EXPECT_FALSE(timed_answer(30, []() -> std::string { throw std::runtime_error("no"); }));
    EXPECT_FALSE(timed_answer(30, []() -> std::string { _exit(0); }));
    const time_t began = time(nullptr);
    EXPECT_FALSE(timed_answer(1, [] { return std::to_string(sleep(60)); }));
    EXPECT_LT(time(nullptr) - began, 30);
}

TEST(HostAddress, TellsOwnAddressesFromOthers)
{
    struct {
        const char *name;
        bool own;
    } rows[] = {{"localhost", true}, {"127.0.0.2", true}, {"192.0.2.1", false}};
    for (const auto &row : rows) {
        const auto address = find_host(row.name, 30);
        ASSERT_TRUE(address) << row.name;
        EXPECT_EQ(is_own_address(*address), row.own) << row.name;
    }
    EXPECT_FALSE(find_host("no name", 30));
}

TEST(Prometheus, ReadsWhateverAServerSaysInAnyLocale)
{
    const std::string before = setlocale(LC_ALL, nullptr);
    setlocale(LC_ALL, "C.UTF-8");
    setlocale(LC_NUMERIC, "de_DE.UTF-8");  // where it is installed: a decimal comma
    service_status_t status;
    status.host = "fax";
    status.version = "a \"b\" \\ \n \xFF \xC3\xBC";
    status.answer_seconds = 0.25;
    status.parts = {{"mail agent", part_state::OK, ""},
                    {"converters", part_state::NOT_NEEDED, ""},
                    {"disk", part_state::WARNING, "", "/faxes", 0.0625}};
    EXPECT_EQ(prometheus_text({status}).find("not_needed"), std::string::npos);
    for (const char *line :
         {"\nfaxtray_ok{host=\"fax\"} 0.0\n", "\nfaxtray_answer_seconds{host=\"fax\"} 0.25\n",
          "\nfaxtray_up{host=\"fax\",part=\"mail_agent\"} 1.0\n# HELP",
          "{host=\"fax\",version=\"a \\\"b\\\" \\\\\\\\ \\\\x0A \\\\xFF \xC3\xBC\"} 1.0\n",
          "\n# TYPE faxtray_disk_free_ratio gauge\nfaxtray_disk_free_ratio{host=\"fax\",path=\"/faxes\"} "
          "0.0625\n"})
        EXPECT_NE(prometheus_text({status}).find(line), std::string::npos)
            << line << prometheus_text({status});
    setlocale(LC_ALL, before.c_str());
}

}  // namespace faxtray
