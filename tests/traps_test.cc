#include "check/traps.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <regex>

#include "check/spelling.h"
#include "support/temp_dir.h"

namespace faxtray {

// The page as one line, without the marks before dots at the beginning of a line.
static std::string page()
{
    const std::string text = read_file(TEST_DATA "/../../man/faxtray-check.8");
    return std::regex_replace(std::regex_replace(text, std::regex("\\\\&"), ""), std::regex("\\s+"), " ");
}

// All that references say the checker prints.
static std::string references()
{
    std::string all;
    for (const char *folder : {TEST_DATA "/check", TEST_DATA "/scenarios"})
        for (const auto &file : std::filesystem::directory_iterator(folder))
            if (file.path().extension() == ".ref")
                all += read_file(file.path());
    return all;
}

TEST(Traps, AreOnThePageAndInAReference)
{
    const std::string shown = page(), found = references();
    for (const trap_t &row : traps) {
        const std::string text = std::regex_replace(row.text, std::regex("%[1-4]"), "...");
        const std::string level = row.level == ERROR ? "error" : "warning";
        EXPECT_NE(shown.find(".It Cm " + std::string(row.name) + " Pq " + level + " " + text + " "),
                  shown.npos)
            << row.name;
        EXPECT_NE(found.find("[" + std::string(row.name) + "]"), found.npos) << row.name;
    }
    const std::regex item("\\.It Cm [a-z0-9-]+ Pq (error|warning)");
    EXPECT_EQ(std::distance(std::sregex_iterator(shown.begin(), shown.end(), item), {}),
              static_cast<long>(std::size(traps)));
}

TEST(Spelling, FindsTheWordThatWasMeant)
{
    EXPECT_EQ(edit_distance("pasword", "password"), 1U);
    EXPECT_EQ(edit_distance("emial", "email"), 1U);  // two letters swapped
    EXPECT_EQ(edit_distance("", "abc"), 3U);
    const std::vector<std::string> known = {"group", "password", "human_name"};
    EXPECT_EQ(nearest("Passwrd", known), "password");
    EXPECT_EQ(nearest("gruop", known), "group");
    EXPECT_EQ(nearest("pass", known), "");  // too far from any
    EXPECT_EQ(did_you_mean("hobby", known), "");
}

}  // namespace faxtray
