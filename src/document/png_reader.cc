// libpng reports failures by longjmp, which destroys no C++ object on its way: it is called by guarded()
// only, with functions that have plain variables.
#include "document/png_reader.h"

#include <png.h>

namespace faxtray {

namespace {

class png_source final : public page_source {
public:
    ~png_source() override { png_destroy_read_struct(&png_, &info_, nullptr); }
    bool open(unique_fd fd);

    step_t next(page_form_t *form) override;
    bool rows(const take_row &take) override;
    bool rewind() override;

private:
    [[noreturn]] static void remember(png_structp png, png_const_charp message);
    template <class Work> bool guarded(Work work);
    bool begin();
    void pass_on(const unsigned char *pixels);
    bool interlaced_rows(const take_row &take);

    file_ptr file_;
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
    bool done_ = false;  // the one page
    png_uint_32 width_ = 0, height_ = 0;
    bool grey_ = false;  // else pixels are black or white
    std::vector<unsigned char> row_;
    char message_[200] = "";
};

}  // namespace

static constexpr size_t pixel_bytes = 4;  // red, green, blue, opacity: what libpng turns everything into

[[noreturn]] void png_source::remember(png_structp png, png_const_charp message)
{
    auto *source = static_cast<png_source *>(png_get_error_ptr(png));
    snprintf(source->message_, sizeof source->message_, "%s", message);
    png_longjmp(png, 1);
}

static void ignore(png_structp, png_const_charp) {}

// Runs `work`, which calls libpng. False, with the reason, if libpng gave up.
template <class Work> bool png_source::guarded(Work work)
{
    if (setjmp(png_jmpbuf(png_)) != 0)
        return refuse(std::string("damaged or truncated: ") + message_);
    work();
    return true;
}

bool png_source::open(unique_fd fd)
{
    file_.reset(fdopen(fd.get(), "rb"));
    if (!file_)
        return refuse("can't be read");
    static_cast<void>(fd.release());
    return begin();
}

// Reads what stands before the pixels.
bool png_source::begin()
{
    png_destroy_read_struct(&png_, &info_, nullptr);
    png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, remember, ignore);
    info_ = png_ ? png_create_info_struct(png_) : nullptr;
    if (!info_)
        return refuse("there is no memory to read it");
    done_ = false;
    return guarded([this] {
        // Of what may stand beside the pixels, only their size is read: texts and profiles may be packed
        // bombs.
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_NEVER, nullptr, -1);
        png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_AS_DEFAULT,
                                    reinterpret_cast<png_const_bytep>("pHYs"), 1);
        png_init_io(png_, file_.get());
        png_read_info(png_, info_);
        width_ = png_get_image_width(png_, info_);
        height_ = png_get_image_height(png_, info_);
        grey_ = png_get_bit_depth(png_, info_) != 1 || png_get_valid(png_, info_, PNG_INFO_tRNS) ||
                png_get_color_type(png_, info_) != PNG_COLOR_TYPE_GRAY;
        png_set_expand(png_);
        png_set_scale_16(png_);
        png_set_gray_to_rgb(png_);
        png_set_add_alpha(png_, 255, PNG_FILLER_AFTER);
    });
}

bool png_source::rewind()
{
    return (fseeko(file_.get(), 0, SEEK_SET) == 0 || refuse("can't be read again")) && begin();
}

page_source::step_t png_source::next(page_form_t *form)
{
    if (done_)
        return END;
    done_ = true;
    if (!is_fit(width_, height_))
        return FAILED;
    constexpr double metre = 0.0254;  // of an inch
    *form = {static_cast<long>(width_), static_cast<long>(height_),
             png_get_x_pixels_per_meter(png_, info_) * metre, png_get_y_pixels_per_meter(png_, info_) * metre,
             grey_};
    return PAGE;
}

// Makes row_ of the pixels.
void png_source::pass_on(const unsigned char *pixels)
{
    row_.assign(grey_ ? width_ : (size_t{width_} + 7) / 8, 0);
    for (size_t x = 0; x < width_; x++, pixels += pixel_bytes) {
        const unsigned ink = 255U - grey_of(pixels[0], pixels[1], pixels[2]), opacity = pixels[3];
        if (grey_)
            row_[x] = static_cast<unsigned char>(255 - ink * opacity / 255);
        else if (ink >= 128)
            row_[x / 8] = static_cast<unsigned char>(row_[x / 8] | 0x80 >> x % 8);
    }
}

// Interlaced pixels are complete only when all have been read.
bool png_source::interlaced_rows(const take_row &take)
{
    const size_t bytes = width_ * pixel_bytes;
    if (bytes * height_ > most_bytes)
        return refuse("an interlaced page of more than " + std::to_string(most_bytes >> 20) + " MB");
    std::vector<unsigned char> page(bytes * height_);
    std::vector<png_bytep> lines(height_);
    for (size_t y = 0; y < height_; y++)
        lines[y] = &page[y * bytes];
    if (!guarded([&] { png_read_image(png_, lines.data()); }))
        return false;
    for (size_t y = 0; y < height_; y++) {
        pass_on(lines[y]);
        if (!take(row_.data()))
            return false;
    }
    return true;
}

bool png_source::rows(const take_row &take)
{
    const bool interlaced = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
    if (interlaced)
        return interlaced_rows(take);
    if (!guarded([this] { png_read_update_info(png_, info_); }))
        return false;
    std::vector<unsigned char> pixels(width_ * pixel_bytes);
    for (png_uint_32 y = 0; y < height_; y++) {
        if (!guarded([&] { png_read_row(png_, pixels.data(), nullptr); }))
            return false;
        pass_on(pixels.data());
        if (!take(row_.data()))
            return false;
    }
    return guarded([this] { png_read_end(png_, nullptr); });
}

page_source_ptr open_png(unique_fd fd, std::string *why)
{
    auto source = std::make_unique<png_source>();
    if (source->open(std::move(fd)))
        return source;
    *why = source->why();
    return nullptr;
}

}  // namespace faxtray
