// The fast ways to decode, encode and re-code give what the plain ones give.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "codec/change_format.h"
#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"
#include "codec/tree_walk.h"
#include "support/daemon.h"
#include "support/pages.h"

namespace faxtray {
namespace {

using bytes_t = std::vector<unsigned char>;

// What a decoder passed on.
struct record_t {
    bytes_t lines;
    long ends = 0;
    int result = 0;
    t4_page_counts_t counts = {};

    bool operator==(const record_t &other) const
    {
        return lines == other.lines && ends == other.ends && result == other.result &&
               counts.lines == other.counts.lines && counts.repeated == other.counts.repeated &&
               counts.ended_short == other.counts.ended_short;
    }
};
record_t record;

t4_callbacks_t recording()
{
    t4_callbacks_t callbacks;
    callbacks.line = [](const unsigned char *line, int bytes) {
        record.lines.insert(record.lines.end(), line, line + bytes);
    };
    callbacks.line_end = [] { record.ends++; };
    return callbacks;
}

template <class Decode> record_t recorded(Decode decode)
{
    record = {};
    int result = decode(recording());
    record.result = result;
    record.counts = t4dec_counts();
    return record;
}

int walk(const bytes_t &data, int df, const t4_callbacks_t &callbacks)
{
    return df == 0   ? walk_MH(data.data(), data.size(), callbacks)
           : df == 1 ? walk_MR(data.data(), data.size(), callbacks)
                     : walk_MMR(data.data(), data.size(), Pix_width, callbacks);
}

// The fast decoder and the walk must tell the same of any bytes.
void expect_as_walked(const bytes_t &bytes, const std::string &what)
{
    // Of their own, so that a read beyond them is found.
    std::vector<unsigned char> data(bytes);
    data.shrink_to_fit();
    for (int df : {0, 1, 3}) {
        const record_t fast =
            recorded([&](const t4_callbacks_t &c) { return t4dec(data.data(), data.size(), df, c); });
        const record_t walked = recorded([&](const t4_callbacks_t &c) { return walk(data, df, c); });
        ASSERT_TRUE(fast == walked) << what << ", DF " << df << ": " << fast.counts.lines
                                    << " lines instead of " << walked.counts.lines
                                    << ", first difference in line "
                                    << std::mismatch(fast.lines.begin(), fast.lines.end(),
                                                     walked.lines.begin(), walked.lines.end())
                                               .first -
                                           fast.lines.begin();
    }
}

// Lines that follow from each other in every way that the codes know: moved edges, runs that come and go,
// white and repeated lines, rules, and noise, also up to the edges of the page.
std::vector<line_changes_t> make_page(std::mt19937 &random, int lines)
{
    std::vector<line_changes_t> page(lines);
    std::vector<int> edges;
    for (line_changes_t &line : page) {
        unsigned kind = random() % 16;
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
        std::copy(edges.begin(), edges.end(), line.at());
        line.end(static_cast<int>(edges.size()));
    }
    return page;
}

using encoder_t = int (*)(t4_get_lines, t4_put_words, int, int);

bytes_t drawn(const std::vector<line_changes_t> &page)
{
    bytes_t lines(page.size() * changes_line_bytes + changes_bitmap_size);
    for (size_t i = 0; i < page.size(); i++)
        draw_changes(page[i], &lines[i * changes_line_bytes]);
    lines.resize(page.size() * changes_line_bytes);
    return lines;
}

bytes_t given, coded;
size_t given_to;

int take_words(const uint16_t *words, int count)
{
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(words);
    coded.insert(coded.end(), bytes, bytes + 2 * count);
    return 2 * count;
}

bytes_t coded_page(const bytes_t &lines, encoder_t encode_page, int df, int vr)
{
    given = lines;
    given_to = 0;
    coded.clear();
    auto give = [](const unsigned char **at, int *count) {
        const size_t left = given.size() - given_to, size = std::min<size_t>(left, 17 * changes_line_bytes);
        *at = given.data() + given_to;
        *count = static_cast<int>(size / changes_line_bytes);
        given_to += size;
        return left > 0 ? changes_line_bytes : -1;
    };
    EXPECT_EQ(encode_page(give, take_words, df, vr), 0);
    return coded;
}

bytes_t damaged_page(bytes_t page, std::mt19937 &random)
{
    for (unsigned flips = 1 + random() % 3; flips > 0; flips--)
        page[random() % page.size()] ^= 1 << random() % 8;
    if (random() % 4 == 0)
        page.resize(1 + random() % page.size());
    return page;
}

TEST(FastCodec, EncodesAsByCodeWords)
{
    std::mt19937 random(3);
    for (int i = 0; i < 40; i++) {
        const bytes_t page = drawn(make_page(random, i * 3));
        for (int df : {0, 1, 3})
            EXPECT_EQ(coded_page(page, encode_g3_fax, df, i % 2),
                      coded_page(page, encode_by_words, df, i % 2))
                << "page " << i << ", DF " << df;
    }
}

TEST(FastCodec, DecodesWhatTheWalkDecodes)
{
    std::mt19937 random(6);
    for (int i = 0; i < 15; i++) {
        const bytes_t page = drawn(make_page(random, 40));
        for (int df : {0, 1, 3}) {
            const bytes_t clean = coded_page(page, encode_g3_fax, df, 1);
            const std::string what = "page " + std::to_string(i) + " of DF " + std::to_string(df);
            expect_as_walked(clean, what);
            for (int damaged = 0; damaged < 40; damaged++)
                expect_as_walked(damaged_page(clean, random), what + " damaged");
            if (HasFatalFailure())
                return;
        }
    }
}

TEST(FastCodec, LeavesNoCleanLineToTheWalk)
{
    std::mt19937 random(8);
    const std::vector<line_changes_t> page = make_page(random, 500);
    for (int df : {0, 1, 3}) {
        bytes_t data = coded_page(drawn(page), encode_g3_fax, df, 1);
        if (df == 0)
            data.insert(data.end(), {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 128});  // fill and an EOL
        size_t found = 0;
        t4dec_changes(data.data(), data.size(), df,
                      [](void *count, const line_changes_t &, bool) { ++*static_cast<size_t *>(count); },
                      &found, {});
        EXPECT_EQ(found, page.size() - (df == 1)) << "DF " << df << "; behind the last line of MR is no EOL";
    }
}

TEST(FastCodec, RecodesAsByBitmapsAndCodeWords)
{
    std::mt19937 random(4);
    auto file_of = [](const bytes_t &page, int df) {
        return fax_file_of({std::string(page.begin(), page.end())}, df, "#PAGES:1\nRESOLUTION:1\n");
    };
    const temp_dir dir;
    for (int i = 0; i < 60; i++)
        for (int from : {0, 1, 3}) {
            const bytes_t lines = drawn(make_page(random, 30)),
                          clean = coded_page(lines, encode_g3_fax, from, 1),
                          page = i % 4 ? damaged_page(clean, random) : clean;
            for (int to : {0, 1, 3}) {
                if (to == from)
                    continue;
                bytes_t kept = recorded([&](const t4_callbacks_t &c) { return walk(page, from, c); }).lines;
                if (to == 0)
                    kept.resize(kept.size() + changes_line_bytes);  // a white line
                const std::string path = dir.write("fax", file_of(page, from));
                ASSERT_EQ(t4dec_change_format(path.c_str(), to, 0, nullptr), 1);
                ASSERT_TRUE(read_file(path) == file_of(coded_page(kept, encode_by_words, to, 1), to))
                    << "page " << i << " from " << from << " to " << to;
            }
        }
}

TEST(FastCodec, DecodesAnyBytesAsTheWalkDoes)
{
    // Behind its white run of 0 this short line has the bits of a white line.
    const uint16_t words[] = {CODE_EOL, 0, CODE_BLACK | 1, 1296, CODE_EOL, CODE_EOL};
    coded.clear();
    flush(std::begin(words), std::end(words), take_words);
    expect_as_walked(coded, "short line");
    std::mt19937 random(1);
    for (int i = 0; i < 1500 && !HasFatalFailure(); i++) {
        bytes_t bytes(random() % 300);
        for (unsigned char &byte : bytes)
            byte = static_cast<unsigned char>(random() & (i & 1 ? random() : ~0u) & (i & 2 ? random() : ~0u));
        expect_as_walked(bytes, "bytes " + std::to_string(i));
    }
}

}  // namespace
}  // namespace faxtray
