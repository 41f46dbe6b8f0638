#include "config/av_list.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "config/av_table.h"
#include "config/av_trace.h"
#include "support/capture.h"

namespace faxtray {

static std::string printed(const av_list_t *list)
{
    capture_stdout out;
    EXPECT_EQ(1, av_printf(stdout, list));
    return out.text();
}

static av_list_ptr entry(const char *key, const char *value)
{
    av_list_ptr list(av_new(key));
    EXPECT_EQ(1, av_put(list.get(), "x", value));
    return list;
}

TEST(AvList, KeepsAttributesSortedAndEachNameOnce)
{
    av_list_ptr list(av_new("Mary"));
    for (auto [attr, value] :
         {std::pair("b", "1"), {"a", "2"}, {"c", "3"}, {"B", "4"}, {"a", "5"}, {"", "6"}})
        EXPECT_EQ(1, av_put(list.get(), attr, value));
    EXPECT_EQ(1, av_put(list.get(), "x", nullptr));
    EXPECT_EQ(1, av_delete(list.get(), "b"));
    list->check_value = -7;
    trace_on trace;
    tr_av_printf(list.get());
    EXPECT_EQ("key:         [Mary]\ncheck_value: [-7]\n    B = [4]\n    a = [5]\n    c = [3]\n    x = []\n",
              trace.text());
}

TEST(AvList, PrintingToAFullDiskFails)
{
    capture_stderr quiet;
    file_ptr full(fopen("/dev/full", "w"));
    setbuf(full.get(), nullptr);
    EXPECT_EQ(0, av_printf(full.get(), entry("k", "v").get()));
    EXPECT_EQ(1, av_error());
}

TEST(AvList, TablesKeepTheirOrder)
{
    av_list_t *table = nullptr;
    for (const char *key : {"one", "two", "three"})
        EXPECT_EQ(1, avl_update(&table, strcmp, entry(key, key).get()));
    EXPECT_EQ(1, avl_update(&table, munged_strcmp, entry("T.wo", "new").get()));
    EXPECT_EQ(1, avl_delete(&table, strcmp, "one"));
    EXPECT_EQ("key:         [T.wo]\n    x = [new]\nkey:         [three]\n    x = [three]\n", printed(table));
    av_free(table);
}

TEST(AvList, LongChainsCostNoStack)
{
    av_list_ptr table(av_new("head"));
    for (int i = 0; i < 100000; i++) {
        av_list_ptr next(av_new("entry"));
        next->next = table->next;
        table->next = next.release();
        av_node_t *node = new_av_node("a", "b");
        node->next = table->nodes;
        table->nodes = node;
    }
    av_list_ptr copy(avl_copy(table.get()));
    EXPECT_TRUE(printed(table.get()) == printed(copy.get()));
}

TEST(AvTable, DoesWhatThePlainChainDoes)
{
    const char *names[] = {"al", "Al", "a l", "al.", "b", "b ", "B", "\xe9", "\xe9.", ".", "", "cy;", "d.ee"};
    std::mt19937 random(11);
    capture_stderr quiet;
    for (int round = 0; round < 50; round++) {
        av_list_t *chain = nullptr;
        av_table_t table;
        for (int i = 0; i < 60; i++) {
            const char *name = names[random() % std::size(names)];
            av_list_ptr fresh = entry(name, std::to_string(i).c_str());
            fresh->check_value = i;
            int expected = avl_update(&chain, munged_strcmp, fresh.get());
            ASSERT_EQ(expected, table.update(std::move(fresh))) << name;
            ASSERT_EQ(expected == 0, fresh != nullptr);  // refused: still the caller's
            for (const char *wanted : names) {
                const av_list_t *a = av_get(chain, munged_strcmp, wanted), *b = table.get(wanted);
                ASSERT_EQ(a == nullptr, b == nullptr) << wanted;
                ASSERT_TRUE(!a || strcmp(av_getv(a, "x"), av_getv(b, "x")) == 0) << wanted;
                ASSERT_TRUE(!a || a->check_value == std::stoi(av_getv(a, "x"))) << wanted;
                ASSERT_TRUE(!a || a->check_value == b->check_value) << wanted;
            }
        }
        ASSERT_EQ(printed(chain), printed(table.head()));
        av_free(chain);
    }
}

}  // namespace faxtray
