// Two stages: the line coder turns lines into code words, the packer looks these up and packs their bits.
// Lines of 1728 pixels, all that our faxes have, go to fast_encoder instead.
#include "codec/t4_encoder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "codec/bit_runs.h"
#include "codec/fast_encoder.h"
#include "codec/t4_codes.h"
#include "faxfile/fax_params.h"
#include "util/owned.h"

namespace faxtray {

// The packer

static uint16_t leftOverWord;  // the output word being filled, from the least significant bit on
static int leftOverLen;        // bits in it, less than 16
static int putdata_err;  // first negative result of the output function, or 1; then nothing more is packed

namespace {

// Full output words on their way to the output function.
class output_t {
public:
    explicit output_t(t4_put_words put_words) : put_words_(put_words) {}

    void put(unsigned word)
    {
        words_[count_++] = static_cast<uint16_t>(word);
        if (count_ == std::size(words_))
            hand_over();
    }

    void hand_over()
    {
        if (count_ > 0 && !putdata_err)
            putdata_err = std::min(put_words_(words_, static_cast<int>(count_)), 0);
        count_ = 0;
    }

private:
    t4_put_words put_words_;
    size_t count_ = 0;
    uint16_t words_[512];
};

}  // namespace

static void clear_packer()
{
    leftOverWord = 0;
    leftOverLen = 0;
}

// Hands over a partly filled word, its high bits 0.
static void put_left_over(output_t &output)
{
    if (leftOverLen > 0)
        output.put(leftOverWord);
    clear_packer();
}

static void put_code(t4_code_t code, output_t &output)
{
    uint32_t bits = leftOverWord | uint32_t{code.bits} << leftOverLen;
    leftOverLen += code.length;
    if (leftOverLen >= 16) {
        output.put(bits & 0xFFFF);
        bits >>= 16;
        leftOverLen -= 16;
    }
    leftOverWord = static_cast<uint16_t>(bits);
}

static void put_run(const std::array<t4_code_t, EncTabSize> &table, int run, output_t &output)
{
    // Longer runs take the longest make-up code repeatedly (ITU-T T.4 section 4.1.1).
    for (; run >= 2560 + 64; run -= 2560)
        put_code(table[63 + 2560 / 64], output);
    if (run >= 64)
        put_code(table[63 + static_cast<size_t>(run) / 64], output);
    put_code(table[static_cast<size_t>(run) % 64], output);
}

static void put_code_word(uint16_t word, output_t &output)
{
    if (word >= CODE_PASS && word <= CODE_EOL_2D) {
        if (word >= CODE_EOL_1D)  // these begin on a word
            put_left_over(output);
        put_code(enc2D[word - CODE_PASS], output);
        return;
    }
    const auto &table = word & CODE_BLACK ? encblack : encwhite;
    if (word == CODE_EOL)
        put_code(table[EncTabSize - 1], output);
    else
        put_run(table, word & ~CODE_BLACK, output);
}

void encode(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words)
{
    if (putdata_err)
        return;
    output_t output(put_words);
    std::for_each(code_words, end, [&](uint16_t word) { put_code_word(word, output); });
    output.hand_over();
}

void flush(const uint16_t *code_words, const uint16_t *end, t4_put_words put_words)
{
    encode(code_words, end, put_words);
    output_t output(put_words);
    put_left_over(output);
    output.hand_over();
}

// The line coder

namespace {

// Collects code words for the packer.
class code_words_t {
public:
    explicit code_words_t(t4_put_words put_words) : put_words_(put_words) {}

    void put(int word)
    {
        words_[count_++] = static_cast<uint16_t>(word);
        if (std::size(words_) - count_ < 8) {
            encode(words_, words_ + count_, put_words_);
            count_ = 0;
        }
    }

    void put_run(int run, bool black) { put(black ? CODE_BLACK | run : run); }

    void finish()
    {
        flush(words_, words_ + count_, put_words_);
        count_ = 0;
    }

private:
    t4_put_words put_words_;
    size_t count_ = 0;
    uint16_t words_[512];
};

}  // namespace

static void code_one_dimensional(const unsigned char *line, int width, code_words_t &codes)
{
    bool black = false;  // so a line that begins black starts with a white run of 0
    for (int at = 0; at < width; black = !black) {
        const int change = bit_next_trans(line, at, width, black);
        codes.put_run(change - at, black);
        at = change;
    }
    if (width < 1728)  // Kept: a run of its own, though the one before may be white too.
        codes.put_run(1728 - width, false);
}

// The code words of VR follow those of VL.
static int vertical_code(int a1_b1)
{
    return a1_b1 > 0 ? CODE_VL3 + a1_b1 : CODE_V0 - a1_b1;
}

// ITU-T T.4 section 4.2.1.3, T.6 section 2.2. `a0` is -1 before the first pixel, where b1 may be pixel 0; for
// the length of the first run it counts as 0.
static void code_two_dimensional(const unsigned char *line, const unsigned char *reference, int width,
                                 code_words_t &codes)
{
    bool black = false;
    for (int a0 = -1; a0 < width;) {
        const int start = std::max(a0, 0);
        const int a1 = bit_next_trans(line, start, width, black);
        const int b1 = bit_find_b1(reference, a0, width, black);
        const int b2 = bit_next_trans(reference, b1, width, !black);
        if (b2 < a1) {
            codes.put(CODE_PASS);
            a0 = b2;
        } else if (abs(a1 - b1) <= 3) {
            codes.put(vertical_code(a1 - b1));
            a0 = a1;
            black = !black;
        } else {
            const int a2 = bit_next_trans(line, a1, width, !black);
            codes.put(CODE_HORIZONTAL);
            codes.put_run(a1 - start, black);
            codes.put_run(a2 - a1, !black);
            a0 = a2;
        }
    }
}

namespace {

// How a page is coded: of every `k` lines the first
// one-dimensionally; none if k is 0. An EOL of 0 means none.
struct page_coding_t {
    const char *function;  // its name in messages
    int df;
    uint16_t eol_1d, eol_2d;
    int k;
};

using line_ptr = std::unique_ptr<unsigned char, deleter<free>>;

}  // namespace

// Checks that lines of `bytes` may follow lines of `size` (-1 for none so far), and makes the reference line
// for the first. False with a message.
static bool accept_line_size(int bytes, int size, line_ptr &reference, const page_coding_t &coding)
{
    constexpr int max_size = (CODE_EOL - 1) / 8;  // a code word must hold the longest run
    if (size >= 0 && bytes != size) {
        printf(coding.k == 0 ? "%s: Line size changed for MMR encoding. Can't do that!\n"
                             : "%s: Line size changed for encoding. Can't do that!\n",
               coding.function);
        return false;
    }
    if (bytes > max_size) {
        printf("%s: Lines of %d bytes are too long\n", coding.function, bytes);
        return false;
    }
    if (!reference)
        reference.reset(static_cast<unsigned char *>(calloc(1, max_size)));
    if (!reference)
        printf("%s: failed to alloc space for reference buffer. exit...\n", coding.function);
    return reference != nullptr;
}

// Codes one line with the EOL before it.
static void code_line(const unsigned char *line, const unsigned char *reference, int width,
                      bool one_dimensional, const page_coding_t &coding, code_words_t &codes)
{
    if (one_dimensional) {
        codes.put(coding.eol_1d);
        code_one_dimensional(line, width, codes);
        return;
    }
    if (coding.eol_2d)
        codes.put(coding.eol_2d);
    code_two_dimensional(line, reference, width, codes);
}

// Codes all lines of a page. Result as of encode_g3_fax; the packer is not flushed yet. Lines of 1728 pixels
// go to `fast` if there is one.
static int code_lines(t4_get_lines get_lines, const page_coding_t &coding, code_words_t &codes,
                      fast_encoder_t *fast)
{
    line_ptr reference;  // white at first
    const unsigned char *lines;
    int count, size = -1;
    long row = 0;
    for (;;) {
        const int bytes = get_lines(&lines, &count);
        if (bytes < 0)
            return bytes == -1 ? 0 : bytes;
        if (!accept_line_size(bytes, size, reference, coding))
            return putdata_err = 1;
        size = bytes;
        if (fast && size == changes_line_bytes) {
            // A repeated line, often white, is compared with its neighbour far faster than coded again.
            for (int i = 0; i < count; i++, lines += size)
                fast->line(lines, i > 0 && memcmp(lines, lines - size, changes_line_bytes) == 0);
            continue;
        }
        for (; count > 0; count--, row++, lines += size) {
            code_line(lines, reference.get(), size * 8, coding.k && row % coding.k == 0, coding, codes);
            memcpy(reference.get(), lines, static_cast<size_t>(size));
        }
    }
}

// Codes a page from its first line to its end. Which of both encoders has the page is known once lines have
// come; the one that coded none has nothing to finish.
static int code_page(t4_get_lines get_lines, t4_put_words put_words, const page_coding_t &coding,
                     bool may_be_fast)
{
    clear_packer();
    putdata_err = 0;
    code_words_t codes(put_words);
    fast_encoder_t fast(coding.df, coding.k, put_words);
    const int result = code_lines(get_lines, coding, codes, may_be_fast ? &fast : nullptr);
    if (result == 1)
        return result;
    if (fast.lines() > 0) {
        putdata_err = fast.finish();
    } else {
        for (int i = 0; coding.k == 0 && i < 2; i++)  // the end-of-facsimile-block
            codes.put(CODE_EOL);
        codes.finish();
    }
    return putdata_err ? putdata_err : result;
}

static int code_page_of(int df, t4_get_lines get_lines, t4_put_words put_words, int vr, bool may_be_fast)
{
    switch (df) {
    case DF_MH:
        return code_page(get_lines, put_words, {"encode_g3_fax", df, CODE_EOL, 0, 1}, may_be_fast);
    case DF_MR:
        return code_page(get_lines, put_words,
                         {"encode_g3_fax", df, CODE_EOL_1D, CODE_EOL_2D, vr == 1 ? 4 : 2}, may_be_fast);
    case DF_MMR:
        return code_page(get_lines, put_words, {"enct4_MMR", df, 0, 0, 0}, may_be_fast);
    default:
        return putdata_err = 1;
    }
}

int encode_g3_fax(t4_get_lines get_lines, t4_put_words put_words, int df, int vr)
{
    return code_page_of(df, get_lines, put_words, vr, true);
}

int enct4_MMR(t4_get_lines get_lines, t4_put_words put_words)
{
    return code_page_of(DF_MMR, get_lines, put_words, 0, true);
}

int encode_by_words(t4_get_lines get_lines, t4_put_words put_words, int df, int vr)
{
    return code_page_of(df, get_lines, put_words, vr, false);
}

}  // namespace faxtray
