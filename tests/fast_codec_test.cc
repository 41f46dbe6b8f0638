// The fast ways to decode, encode and re-code do what the plain ones do.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "../fuzz/t4_page.h"
#include "codec/change_format.h"
#include "codec/line_changes.h"
#include "support/daemon.h"
#include "support/pages.h"

namespace faxtray {

static constexpr int codings[] = {DF_MH, DF_MR, DF_MMR};

static void expect_as_walked(const std::string &bytes)
{
    for (int df : codings)
        ASSERT_TRUE(decode(bytes, df) == decode_by_walk(bytes, df)) << bytes.size() << " bytes, DF " << df;
}

// Lines that follow from each other in every way that the codes know: moved edges, runs that come and go,
// white and repeated lines, rules, and noise, also up to the edges of the page.
static page_t make_page(std::mt19937 &random, int lines)
{
    page_t page;
    std::vector<int> edges;
    for (; lines > 0; lines--) {
        const unsigned kind = random() % 16;
        if (kind == 0)
            edges.clear();
        for (unsigned fresh = kind == 1 ? 800 : kind < 6 ? 6 : 0; fresh > 0; fresh--)
            edges.push_back(random() % (random() % 4 ? changes_width : 40));
        if (kind > 2)
            for (int &edge : edges)
                edge +=
                    random() % 3 ? 0 : static_cast<int>(random() % (kind > 9 ? 3 : 9)) - (kind > 9 ? 1 : 4);
        std::sort(edges.begin(), edges.end());
        edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
        std::erase_if(edges, [&](int edge) {
            return edge < 0 || edge >= changes_width || random() % (edges.size() > 100 ? 4 : 40) == 0;
        });
        line_changes_t line;
        std::copy(edges.begin(), edges.end(), line.at());
        line.end(static_cast<int>(edges.size()));
        std::string bitmap(changes_bitmap_size, '\0');
        draw_changes(line, reinterpret_cast<unsigned char *>(bitmap.data()));
        page.push_back(bitmap.substr(0, changes_line_bytes));
    }
    return page;
}

static std::string packed(const std::vector<uint16_t> &words)
{
    std::string bytes;
    coded = &bytes;
    flush(words.data(), words.data() + words.size(), collect_words);
    return bytes;
}

// Lines of runs of which some are 0, also within a line, where our encoder makes none; in two dimensions
// every second line repeats the one above, which shows whether that was understood.
static std::string page_of_empty_runs(std::mt19937 &random, int df)
{
    std::vector<uint16_t> words;
    std::vector<int> changes;
    for (int line = 0; line < 20; line++) {
        const bool repeated = df != DF_MH && line % 2;
        if (df != DF_MMR)
            words.push_back(df == DF_MH ? CODE_EOL : repeated ? CODE_EOL_2D : CODE_EOL_1D);
        if (repeated)
            words.insert(words.end(), changes.size() + 1, CODE_V0);
        changes.clear();
        for (int at = 0, i = 0; !repeated && (at < changes_width || (df == DF_MMR && i % 2)); i++) {
            const int run = random() % 16 ? std::min<int>(changes_width - at, random() % 300) : 0;
            if (df == DF_MMR && i % 2 == 0)
                words.push_back(CODE_HORIZONTAL);
            words.push_back(static_cast<uint16_t>(i % 2 ? CODE_BLACK | run : run));
            at += run;
            if (!changes.empty() && changes.back() == at)
                changes.pop_back();  // two changes at one pixel are none
            else if (at < changes_width)
                changes.push_back(at);
        }
    }
    return packed(words);
}

static std::string damaged_page(std::string page, std::mt19937 &random)
{
    for (unsigned flips = 1 + random() % 3; flips > 0; flips--)
        page[random() % page.size()] ^= static_cast<char>(1 << random() % 8);
    if (random() % 4 == 0)
        page.resize(1 + random() % page.size());
    return page;
}

TEST(FastCodec, EncodesAsByCodeWords)
{
    std::mt19937 random(3);
    for (int i = 0; i < 40; i++) {
        const page_t page = make_page(random, i * 3);
        for (int df : codings)
            EXPECT_EQ(encode(page, df, i % 2), encode(page, df, i % 2, encode_by_words))
                << i << ", DF " << df;
    }
}

TEST(FastCodec, DecodesWhatTheWalkDecodes)
{
    std::mt19937 random(6);
    for (int i = 0; i < 15; i++) {
        const page_t page = make_page(random, 40);
        for (int df : codings) {
            const std::string clean = encode(page, df);
            expect_as_walked(clean);
            for (int damaged = 0; damaged < 40; damaged++)
                expect_as_walked(damaged_page(clean, random));
            expect_as_walked(page_of_empty_runs(random, df));
            EXPECT_GT(decode(clean, df, 1728, true).events.size(), decode(clean, df).events.size()) << "runs";
        }
    }
}

TEST(FastCodec, LeavesNoCleanLineToTheWalk)
{
    std::mt19937 random(8);
    const page_t page = make_page(random, 500);
    for (int df : codings) {
        std::string data = encode(page, df);
        if (df == DF_MH)
            data += std::string(12, '\0') + '\x80';  // fill and an EOL
        size_t found = 0;
        t4dec_changes(reinterpret_cast<const unsigned char *>(data.data()), data.size(), df,
                      [](void *count, const line_changes_t &, bool) { ++*static_cast<size_t *>(count); },
                      &found, {});
        EXPECT_EQ(found, page.size() - (df == DF_MR))
            << "DF " << df << "; no EOL follows the last line of MR";
    }
}

static void expect_recoded_as_by_code_words(int pages)
{
    std::mt19937 random(4);
    const temp_dir dir;
    for (int i = 0; i < pages; i++) {
        const std::string head = "#PAGES:2\nRESOLUTION:" + std::to_string(i / 2 % 2) + "\nA:b:c\n";
        for (int from : codings) {
            const std::string clean = encode(make_page(random, 30), from);
            const std::vector<std::string> both = {clean,
                                                   i % 4 ? damaged_page(clean, random) : clean + clean};
            for (int to : codings) {
                if (to == from)
                    continue;
                std::vector<std::string> recoded;
                for (const std::string &page : both) {
                    page_t kept = decode_by_walk(page, from).lines;
                    if (to == DF_MH)
                        kept.push_back(white_line());
                    recoded.push_back(encode(kept, to, i / 2 % 2, encode_by_words));
                }
                const std::string path = dir.write("fax", fax_file_of(both, from, head));
                ASSERT_EQ(t4dec_change_format(path.c_str(), to, 0, nullptr), 1);
                ASSERT_TRUE(read_file(path) == fax_file_of(recoded, to, head))
                    << "file " << i << " from " << from << " to " << to;
            }
        }
    }
}

TEST(FastCodec, RecodesAsByCodeWords)
{
    expect_recoded_as_by_code_words(60);
    // By way of bitmaps too; in a process of its own, since the flag cannot be cleared.
    auto by_bitmaps = [] {
        t4dec_set_debug("x,,32");
        expect_recoded_as_by_code_words(8);
        exit(t4dec_debug() != T4_DEBUG_BITMAPS || HasFailure());
    };
    EXPECT_EXIT(by_bitmaps(), testing::ExitedWithCode(0), "");
}

TEST(FastCodec, DecodesAnyBytesAsTheWalkDoes)
{
    // After its white run of 0 this short line has the bits of a white line.
    expect_as_walked(packed({CODE_EOL, 0, CODE_BLACK | 1, 1296, CODE_EOL, CODE_EOL}));
    std::mt19937 random(1);
    for (int i = 0; i < 1500 && !HasFatalFailure(); i++) {
        std::string bytes(random() % 300, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random() & (i & 1 ? random() : ~0u) & (i & 2 ? random() : ~0u));
        expect_as_walked(bytes);
    }
}

}  // namespace faxtray
