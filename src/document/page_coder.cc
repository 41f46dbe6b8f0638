// The strips of TIFF files mostly lack the end-of-page code. Without the EOL after it, the last line of an MH
// page would not be read. One EOL, after fill to the next byte, is enough for every reader.
#include "document/page_coder.h"

#include <algorithm>

#include "codec/fast_decoder.h"
#include "codec/fast_encoder.h"
#include "codec/page_coding.h"
#include "faxfile/fax_params.h"

namespace faxtray {

static constexpr size_t eol_zeros = 11;  // before the 1 of an EOL

using bytes_t = std::vector<unsigned char>;

static bool bit_of(const bytes_t &data, size_t at)
{
    return data[at / 8] >> at % 8 & 1;
}

// The bits before the last 1, and it; 0 if there is none.
static size_t bits_to_last_one(const bytes_t &data)
{
    size_t end = data.size() * 8;
    while (end > 0 && !bit_of(data, end - 1))
        end--;
    return end;
}

// Whether the `end` bits end with an EOL, which is then taken off.
static bool take_eol(const bytes_t &data, size_t *end)
{
    if (*end <= eol_zeros || !bit_of(data, *end - 1))
        return false;
    for (size_t at = *end - 1 - eol_zeros; at < *end - 1; at++)
        if (bit_of(data, at))
            return false;
    *end -= eol_zeros + 1;
    return true;
}

// Appends the EOL that ends the last line of an MH or MR page, unless there is one. MR's has the tag 1.
static void end_last_line(bytes_t *data, int df)
{
    size_t end = bits_to_last_one(*data);
    if (df == DF_MR && end > 0)
        end--;  // its tag
    if (take_eol(*data, &end))
        return;
    const unsigned char eol[] = {0x00, static_cast<unsigned char>(df == DF_MR ? 0x18 : 0x08)};
    data->insert(data->end(), eol, eol + sizeof eol);
}

// Appends the end-of-facsimile-block after `end` bits, if nothing follows them.
static bool end_facsimile_block(bytes_t *data, size_t end)
{
    if (bits_to_last_one(*data) > end)
        return false;
    data->resize((end + 2 * (eol_zeros + 1) + 7) / 8);
    for (size_t one = end + eol_zeros; one < end + 2 * (eol_zeros + 1); one += eol_zeros + 1)
        (*data)[one / 8] = static_cast<unsigned char>((*data)[one / 8] | 1 << one % 8);
    return true;
}

bool complete_strip(bytes_t *data, int df, long lines)
{
    clean_page_t page = {};
    size_t end = bits_to_last_one(*data);
    if (df == DF_MMR && !(take_eol(*data, &end) && take_eol(*data, &end))) {
        fast_page_t plain = {
            data->data(), data->size(), df, 0, true, {}, [](void *, const line_changes_t &, bool) {},
            nullptr};
        return fast_lines(plain) == lines && end_facsimile_block(data, plain.bit);
    }
    if (df != DF_MMR)
        end_last_line(data, df);
    return is_clean_page(data->data(), data->size(), df, &page) && page.lines == lines;
}

static bytes_t *coded_page;  // under way; the encoder's callback has no argument for it

// The low byte of each word comes first, as in a file.
static int append_words(const uint16_t *words, int count)
{
    for (int i = 0; i < count; i++) {
        coded_page->push_back(static_cast<unsigned char>(words[i]));
        coded_page->push_back(static_cast<unsigned char>(words[i] >> 8));
    }
    return 0;
}

// Codes the lines that `put` gives the encoder.
template <class Put> static bool code_page(int df, int vr, bytes_t *coded, Put put)
{
    constexpr unsigned char white[changes_line_bytes] = {};
    coded->clear();
    coded_page = coded;
    fast_encoder_t encoder(df, vr == 1 ? 4 : 2, append_words);
    if (!put(&encoder))
        return false;
    if (encoder.lines() == 0)
        encoder.line(white, false);
    encoder.finish();
    if (df != DF_MMR)
        end_last_line(coded, df);
    return true;
}

namespace {

struct limited_t {
    fast_encoder_t *encoder;
    long most;  // lines
};

}  // namespace

static void encode_up_to_limit(void *user, const line_changes_t &line, bool same)
{
    const auto *limited = static_cast<limited_t *>(user);
    if (limited->encoder->lines() < limited->most)
        limited->encoder->line(line, same);
}

bool recode_strip(bytes_t data, int from, int to, int vr, long most, bytes_t *coded)
{
    if (from != DF_MMR)
        end_last_line(&data, from);
    return code_page(to, vr, coded, [&](fast_encoder_t *encoder) {
        limited_t limited = {encoder, most};
        return decode_sent_lines(&data, from, encode_up_to_limit, &limited);
    });
}

bool code_image(const page_image_t &image, int df, int vr, bytes_t *coded)
{
    return code_page(df, vr, coded, [&](fast_encoder_t *encoder) {
        for (long y = 0; y < image.height; y++)
            encoder->line(image.row(y), y > 0 && std::equal(image.row(y), image.row(y) + changes_line_bytes,
                                                            image.row(y - 1)));
        return true;
    });
}

}  // namespace faxtray
