// Clean lines pass from the decoder to the encoder as lists of changing elements, never drawn; only damaged
// ones arrive as bitmaps.
#include "codec/page_coding.h"

#include <endian.h>

#include "codec/fast_encoder.h"
#include "codec/line_assembler.h"
#include "codec/t4_decoder.h"
#include "faxfile/fax_params.h"

namespace faxtray {

static constexpr size_t eol_zeros = 11;  // before the 1 of an EOL

namespace {

// The bits of a page, from the least significant of each byte on.
struct page_bits_t {
    const unsigned char *data;
    size_t count;

    bool is_one(size_t at) const { return at < count && data[at / 8] >> at % 8 & 1; }
    size_t next_one(size_t at) const  // from `at` on; `count` if there is none
    {
        while (at < count && !is_one(at))
            at++;
        return at;
    }
    size_t after_last_one(size_t end) const  // before `end`; 0 if there is none
    {
        while (end > 0 && !is_one(end - 1))
            end--;
        return end;
    }
};

}  // namespace

// Moves past the EOL (for MR with the tag 1) at `at`, which may have fill before it. False if there is none.
static bool skip_eol(const page_bits_t &bits, bool tagged, size_t *at)
{
    const size_t one = bits.next_one(*at);
    if (one == bits.count || one - *at < eol_zeros || (tagged && !bits.is_one(one + 1)))
        return false;
    *at = one + 1 + tagged;
    return true;
}

// Decoding

namespace {

struct receiver_t {
    changes_callback found;
    void *user;
};

}  // namespace

static receiver_t receiver;  // of damaged lines, whose callback has no argument for it

static void pass_on_bitmap(const unsigned char *bitmap, int /*bytes*/)
{
    line_changes_t line;
    find_changes(bitmap, line);
    receiver.found(receiver.user, line, false);
}

bool decode_changes(const unsigned char *data, size_t length, int df, changes_callback found, void *user)
{
    receiver = {found, user};
    t4dec_set_pixel_width(changes_width);
    t4_callbacks_t damaged;
    damaged.line = pass_on_bitmap;
    return t4dec_changes(data, length, df, found, user, damaged) == 1;
}

// Ends an MH page with one EOL, the one after its last line: cuts further ones, or appends one, without which
// the decoder does not pass on that line.
static void end_with_one_eol(std::vector<unsigned char> *data)
{
    const page_bits_t bits = {data->data(), data->size() * 8};
    size_t end = 0;
    // Backwards, from EOL to EOL.
    for (size_t one = bits.after_last_one(bits.count); one > 0;) {
        const size_t before = bits.after_last_one(one - 1);
        if (one - 1 - before < eol_zeros)
            break;
        end = one;
        one = before;
    }
    if (end == 0) {
        data->insert(data->end(), {0x00, 0x80});
        return;
    }
    data->resize((end + 7) / 8);
    if (end % 8 != 0)
        data->back() &= static_cast<unsigned char>((1u << end % 8) - 1);
}

namespace {

// Passes lines on, but the first `skip`.
struct sent_lines_t {
    receiver_t to;
    long skip;
    long passed_on = 0;
};

}  // namespace

static void pass_on_sent(void *user, const line_changes_t &line, bool same)
{
    sent_lines_t *lines = static_cast<sent_lines_t *>(user);
    if (lines->skip > 0) {
        lines->skip--;
        return;
    }
    lines->to.found(lines->to.user, line, same && lines->passed_on > 0);
    lines->passed_on++;
}

bool decode_sent_lines(std::vector<unsigned char> *data, int df, changes_callback found, void *user)
{
    sent_lines_t lines = {{found, user}, 0};
    if (df == DF_MH && !data->empty()) {
        end_with_one_eol(data);
        size_t at = 0;
        lines.skip = skip_eol({data->data(), data->size() * 8}, false, &at);
    }
    putrunlen_failed();  // of earlier pages
    // No data are a page without lines, but to the decoder of MR a failure.
    if ((!data->empty() && !decode_changes(data->data(), data->size(), df, pass_on_sent, &lines)) ||
        putrunlen_failed())
        return false;
    if (lines.passed_on == 0)
        found(user, {}, false);
    return true;
}

// Encoding

static std::vector<unsigned char> *words;  // where append_words, which has no argument for it, puts them

// The low byte of each word comes first, as in a file.
static int append_words(const uint16_t *from, int count)
{
    for (int i = 0; i < count; i++) {
        const uint16_t word = htole16(from[i]);
        const auto *bytes = reinterpret_cast<const unsigned char *>(&word);
        words->insert(words->end(), bytes, bytes + sizeof word);
    }
    return 0;
}

void encode_changes(void *encoder, const line_changes_t &line, bool same)
{
    fast_encoder_t *page = static_cast<fast_encoder_t *>(encoder);
    if (page->lines() < most_recoded_lines)
        page->line(line, same);
}

bool recode_in_memory(std::vector<unsigned char> *data, int df, int to, int vr,
                      std::vector<unsigned char> *coded, long *lines)
{
    coded->clear();
    words = coded;
    fast_encoder_t encoder(to, vr == 1 ? 4 : 2, append_words);
    if (!decode_sent_lines(data, df, encode_changes, &encoder))
        return false;
    *lines = encoder.lines();
    return encoder.finish() == 0;
}

// Clean pages

bool is_clean_page(const unsigned char *data, size_t length, int df, clean_page_t *page)
{
    const page_bits_t bits = {data, length * 8};
    const bool has_eols = df == DF_MH || df == DF_MR, tagged = df == DF_MR;
    fast_page_t lines = {data, length, df, 0, true, {}, [](void *, const line_changes_t &, bool) {}, nullptr};
    if ((!has_eols && df != DF_MMR) || (has_eols && !skip_eol(bits, tagged, &lines.bit)))
        return false;
    page->lines = fast_lines(lines);
    size_t end = lines.bit;
    page->bytes = (end + 7) / 8;
    // The fast decoder stops at anything but a plain line, so what is left tells whether it was stopped
    // early.
    if (df == DF_MMR) {
        for (int i = 0; i < 2; i++)  // the EOFB, without fill
            if (!skip_eol(bits, false, &end) || end != lines.bit + (i + 1) * (eol_zeros + 1))
                return false;
        page->bytes = (end + 7) / 8;
    }
    while (has_eols && skip_eol(bits, tagged, &end)) {
    }
    return page->lines > 0 && bits.next_one(end) == bits.count;
}

}  // namespace faxtray
