// The pages of a file follow one another without a table: the next is found by reading this one.
#include "document/pbm_reader.h"

#include <algorithm>
#include <cctype>

namespace faxtray {

namespace {

class pbm_source final : public page_source {
public:
    bool open(unique_fd fd);

    step_t next(page_form_t *form) override;
    bool rows(const take_row &take) override;
    bool rewind() override;

private:
    int skip_space();
    bool read_number(long *number);
    bool raw_row(unsigned char *row, size_t bytes);
    bool plain_row(unsigned char *row, size_t bytes);

    file_ptr file_;
    bool raw_ = false;
    long width_ = 0, height_ = 0;
    long left_ = 0;  // rows of the page not yet read
};

}  // namespace

bool pbm_source::open(unique_fd fd)
{
    file_.reset(fdopen(fd.get(), "rb"));
    if (!file_)
        return refuse("can't be read");
    static_cast<void>(fd.release());
    return true;
}

bool pbm_source::rewind()
{
    left_ = 0;
    return fseeko(file_.get(), 0, SEEK_SET) == 0 || refuse("can't be read again");
}

// The next character that is neither white space nor in a comment, or EOF.
int pbm_source::skip_space()
{
    bool comment = false;
    int c;
    while ((c = getc(file_.get())) != EOF && (comment || isspace(c) || c == '#'))
        comment = c == '#' || (comment && c != '\n');
    return c;
}

// A decimal number, and the one character after it.
bool pbm_source::read_number(long *number)
{
    int c = skip_space();
    if (c < '0' || c > '9')
        return refuse("not a sound bitmap: its size is missing");
    for (*number = 0; c >= '0' && c <= '9'; c = getc(file_.get()))
        *number = std::min(*number * 10 + (c - '0'), 1000000000L);  // too large is what counts
    return true;
}

page_source::step_t pbm_source::next(page_form_t *form)
{
    // What was not read of the page before is passed over.
    if (left_ > 0 && !rows([](const unsigned char *) { return true; }))
        return FAILED;
    const int c = skip_space();
    if (c == EOF)
        return END;
    const int kind = getc(file_.get());
    if (c != 'P' || (kind != '1' && kind != '4')) {
        refuse("not a bitmap (PBM), or something else after one");
        return FAILED;
    }
    raw_ = kind == '4';
    if (!read_number(&width_) || !read_number(&height_) || !is_fit(width_, height_))
        return FAILED;
    left_ = height_;
    *form = {width_, height_};
    return PAGE;
}

bool pbm_source::raw_row(unsigned char *row, size_t bytes)
{
    return fread(row, 1, bytes, file_.get()) == bytes;
}

bool pbm_source::plain_row(unsigned char *row, size_t bytes)
{
    std::fill(row, row + bytes, 0);
    for (long x = 0; x < width_; x++) {
        const int c = skip_space();
        if (c != '0' && c != '1')
            return false;
        if (c == '1')
            row[x / 8] = static_cast<unsigned char>(row[x / 8] | 0x80 >> x % 8);
    }
    return true;
}

bool pbm_source::rows(const take_row &take)
{
    std::vector<unsigned char> row(static_cast<size_t>(width_ + 7) / 8);
    while (left_ > 0) {
        if (!(raw_ ? raw_row(row.data(), row.size()) : plain_row(row.data(), row.size())))
            return refuse("truncated: a page ends before its last line");
        left_--;
        if (!take(row.data()))
            return false;
    }
    return true;
}

page_source_ptr open_pbm(unique_fd fd, std::string *why)
{
    auto source = std::make_unique<pbm_source>();
    if (source->open(std::move(fd)))
        return source;
    *why = source->why();
    return nullptr;
}

}  // namespace faxtray
