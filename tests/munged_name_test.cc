#include "config/munged_name.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace faxtray {

// Every name of up to three characters over a small alphabet, and some longer ones.
static std::vector<std::string> many_names()
{
    const std::string alphabet = "aB.- \x01z";
    std::vector<std::string> names = {""};
    for (size_t i = 0; names[i].size() < 3; i++)
        for (char ch : alphabet)
            names.push_back(names[i] + ch);
    std::mt19937 random(7);
    for (int i = 0; i < 200; i++) {
        std::string name;
        for (size_t n = 4 + random() % 5; n > 0; n--)
            name += alphabet[random() % alphabet.size()];
        names.push_back(name);
    }
    return names;
}

TEST(MungedName, KeysStandInTheOrderOfTheNames)
{
    std::vector<std::string> names = many_names(), keys;
    for (const std::string &name : names)
        keys.push_back(munged_key(name.c_str()));
    munged_less less;
    for (size_t i = 0; i < names.size(); i++)
        for (size_t j = 0; j < names.size(); j++) {
            int order = munged_strcmp(names[i].c_str(), names[j].c_str());
            // Of two like names that do not equal themselves each comes before the other.
            bool before = less(keys[i], keys[j]) || (keys[i] == keys[j] && !equals_itself(names[i].c_str()));
            ASSERT_EQ(before, order < 0) << "[" << names[i] << "] [" << names[j] << "]";
            ASSERT_EQ(less(keys[j], keys[i]), order > 0) << "[" << names[i] << "] [" << names[j] << "]";
        }
}

}  // namespace faxtray
