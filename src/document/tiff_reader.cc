// Rows of one bit are read line by line; everything else by libtiff's conversion to RGBA, a strip or a row of
// tiles at a time, which knows all that colours may mean. A page that is turned is gathered first.
#include "document/tiff_reader.h"

#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstring>

#include "codec/line_changes.h"
#include "faxfile/fax_params.h"

namespace faxtray {

using tiff_ptr = std::unique_ptr<TIFF, deleter<TIFFClose>>;

// Where the first row and column of a turned page are: values of TIFFTAG_ORIENTATION.
static bool is_transposed(int orientation)
{
    return orientation >= ORIENTATION_LEFTTOP;
}

static bool is_mirrored(int orientation)  // columns run from right to left, once rows are rows
{
    return orientation == ORIENTATION_TOPRIGHT || orientation == ORIENTATION_BOTRIGHT ||
           orientation == ORIENTATION_RIGHTTOP || orientation == ORIENTATION_RIGHTBOT;
}

static bool is_upside_down(int orientation)
{
    return orientation == ORIENTATION_BOTRIGHT || orientation == ORIENTATION_BOTLEFT ||
           orientation == ORIENTATION_RIGHTBOT || orientation == ORIENTATION_LEFTBOT;
}

// The bits of a byte in the opposite order.
static constexpr std::array<unsigned char, 256> turned = [] {
    std::array<unsigned char, 256> table{};
    for (unsigned byte = 0; byte < 256; byte++)
        for (unsigned bit = 0; bit < 8; bit++)
            if (byte >> bit & 1)
                table[byte] = static_cast<unsigned char>(table[byte] | 0x80 >> bit);
    return table;
}();

namespace {

class tiff_source final : public page_source {
public:
    explicit tiff_source(unique_fd fd) : fd_(std::move(fd)) {}
    bool open();

    step_t next(page_form_t *form) override;
    bool rows(const take_row &take) override;
    bool coded(std::vector<unsigned char> *data) override;
    bool rewind() override;

private:
    static int remember(TIFF *, void *source, const char *module, const char *format, va_list args)
        __attribute__((format(printf, 4, 0)));
    bool failed(const char *what);
    bool read_form(page_form_t *form);
    bool has_all_data();
    int coding() const;
    bool bit_rows(const take_row &take);
    bool colour_rows(const take_row &take);
    bool turned_rows(const take_row &take);
    bool stored_rows(const take_row &take) { return grey_ ? colour_rows(take) : bit_rows(take); }

    template <class T> T field(uint32_t tag) const
    {
        T value{};
        TIFFGetFieldDefaulted(tiff_.get(), tag, &value);
        return value;
    }

    unique_fd fd_;
    off_t size_ = 0;       // of the file
    std::string message_;  // libtiff's last one
    tiff_ptr tiff_;
    bool begun_ = false;
    // Of the page:
    uint32_t width_ = 0, height_ = 0;  // as stored
    int orientation_ = ORIENTATION_TOPLEFT;
    uint16_t compression_ = 0;
    bool grey_ = false, inverted_ = false;
};

}  // namespace

int tiff_source::remember(TIFF *, void *source, const char *, const char *format, va_list args)
{
    char text[200];
    vsnprintf(text, sizeof text, format, args);
    static_cast<tiff_source *>(source)->message_ = text;
    return 1;
}

static int ignore(TIFF *, void *, const char *, const char *, va_list)
{
    return 1;
}

bool tiff_source::failed(const char *what)
{
    return refuse(message_.empty() ? what : std::string(what) + ": " + message_);
}

bool tiff_source::open()
{
    struct stat st;
    std::unique_ptr<TIFFOpenOptions, deleter<TIFFOpenOptionsFree>> options(TIFFOpenOptionsAlloc());
    if (!options || fstat(fd_.get(), &st) != 0)
        return refuse("can't be read");
    size_ = st.st_size;
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), remember, this);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), ignore, nullptr);
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(most_bytes));
    // m: not mapped into memory, since whoever cuts the file then would end us with SIGBUS.
    tiff_.reset(TIFFFdOpenExt(fd_.get(), "TIFF", "rm", options.get()));
    if (!tiff_)
        return failed("not a sound TIFF file");
    static_cast<void>(fd_.release());  // libtiff closes it
    return true;
}

bool tiff_source::rewind()
{
    begun_ = false;
    return TIFFSetDirectory(tiff_.get(), 0) == 1 || failed("the first page can't be read again");
}

page_source::step_t tiff_source::next(page_form_t *form)
{
    for (;;) {
        if (begun_) {
            if (TIFFLastDirectory(tiff_.get()))
                return END;
            if (!TIFFReadDirectory(tiff_.get())) {
                failed("damaged");
                return FAILED;
            }
        }
        begun_ = true;
        if (!(field<uint32_t>(TIFFTAG_SUBFILETYPE) & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)))
            return read_form(form) ? PAGE : FAILED;
    }
}

// The DF code of a page that is coded as fax files are, or -1.
int tiff_source::coding() const
{
    if (grey_ || inverted_ || orientation_ != ORIENTATION_TOPLEFT || width_ != changes_width ||
        TIFFNumberOfStrips(tiff_.get()) != 1)
        return -1;
    if (compression_ == COMPRESSION_CCITTFAX4)
        return field<uint32_t>(TIFFTAG_GROUP4OPTIONS) & GROUP4OPT_UNCOMPRESSED ? -1 : DF_MMR;
    const auto options = field<uint32_t>(TIFFTAG_GROUP3OPTIONS);
    if (compression_ != COMPRESSION_CCITTFAX3 || options & GROUP3OPT_UNCOMPRESSED)
        return -1;
    return options & GROUP3OPT_2DENCODING ? DF_MR : DF_MH;
}

bool tiff_source::read_form(page_form_t *form)
{
    TIFF *tiff = tiff_.get();
    message_.clear();
    width_ = field<uint32_t>(TIFFTAG_IMAGEWIDTH);
    height_ = field<uint32_t>(TIFFTAG_IMAGELENGTH);
    compression_ = field<uint16_t>(TIFFTAG_COMPRESSION);
    orientation_ = field<uint16_t>(TIFFTAG_ORIENTATION);
    if (orientation_ < ORIENTATION_TOPLEFT || orientation_ > ORIENTATION_LEFTBOT)
        orientation_ = ORIENTATION_TOPLEFT;
    uint16_t photometric = PHOTOMETRIC_MINISWHITE;
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
    grey_ = field<uint16_t>(TIFFTAG_BITSPERSAMPLE) != 1 || field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL) != 1 ||
            photometric > PHOTOMETRIC_MINISBLACK || TIFFIsTiled(tiff);
    inverted_ = !grey_ && photometric == PHOTOMETRIC_MINISBLACK;
    if (!is_fit(width_, height_) || !has_all_data())
        return false;

    float x = 0, y = 0;
    if (!TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) || !TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y))
        x = y = 0;
    const auto unit = field<uint16_t>(TIFFTAG_RESOLUTIONUNIT);
    const double inch = unit == RESUNIT_CENTIMETER ? 2.54 : unit == RESUNIT_NONE ? 0 : 1;
    *form = {width_, height_, x * inch, y * inch, grey_, coding()};
    if (is_transposed(orientation_)) {
        std::swap(form->width, form->height);
        std::swap(form->x_dpi, form->y_dpi);
    }
    return true;
}

// Looks before anything is read: libtiff takes some data that are cut off for damaged ones, and goes on.
bool tiff_source::has_all_data()
{
    TIFF *tiff = tiff_.get();
    const uint32_t pieces = TIFFIsTiled(tiff) ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
    for (uint32_t i = 0; i < pieces; i++) {
        const uint64_t offset = TIFFGetStrileOffset(tiff, i), bytes = TIFFGetStrileByteCount(tiff, i);
        if (bytes > static_cast<uint64_t>(size_) || offset > static_cast<uint64_t>(size_) - bytes)
            return refuse("truncated: the file ends before its data do");
        if (bytes == 0)
            return refuse("truncated: a page without data");
    }
    return pieces > 0 || refuse("a page without data");
}

bool tiff_source::coded(std::vector<unsigned char> *data)
{
    const auto bytes = TIFFGetStrileByteCount(tiff_.get(), 0);
    if (bytes > most_bytes)
        return refuse("a page of " + std::to_string(bytes) + " bytes");
    data->resize(bytes);
    const tmsize_t size = static_cast<tmsize_t>(bytes);
    if (TIFFReadRawStrip(tiff_.get(), 0, data->data(), size) != size)
        return failed("can't be read");
    if (field<uint16_t>(TIFFTAG_FILLORDER) != FILLORDER_LSB2MSB)
        std::transform(data->begin(), data->end(), data->begin(),
                       [](unsigned char byte) { return turned[byte]; });
    return true;
}

// One bit a pixel, in strips.
bool tiff_source::bit_rows(const take_row &take)
{
    // Fax pages come over telephone lines. Where libtiff gives up on one, the rest of it is white.
    const bool is_fax = compression_ == COMPRESSION_CCITTFAX3 || compression_ == COMPRESSION_CCITTFAX4 ||
                        compression_ == COMPRESSION_CCITTRLE || compression_ == COMPRESSION_CCITTRLEW;
    std::vector<unsigned char> row(static_cast<size_t>(TIFFScanlineSize(tiff_.get())));
    bool sound = true;
    for (uint32_t y = 0; y < height_; y++) {
        sound = sound && TIFFReadScanline(tiff_.get(), row.data(), y) == 1;
        if (!sound && (!is_fax || y == 0))
            return failed("damaged");
        if (!sound)
            std::fill(row.begin(), row.end(), 0);
        else if (inverted_)
            std::transform(row.begin(), row.end(), row.begin(),
                           [](unsigned char byte) { return static_cast<unsigned char>(~byte); });
        if (!take(row.data()))
            return false;
    }
    return true;
}

// On white paper. The colours are multiplied by the opacity already.
static unsigned char grey_of_pixel(uint32_t pixel)
{
    const unsigned grey = grey_of(TIFFGetR(pixel), TIFFGetG(pixel), TIFFGetB(pixel));
    return static_cast<unsigned char>(std::min(255U, grey + 255 - TIFFGetA(pixel)));
}

// Grey, colours, tiles: as many rows at a time as are stored together.
bool tiff_source::colour_rows(const take_row &take)
{
    TIFF *tiff = tiff_.get();
    const uint32_t together =
        std::min(height_, field<uint32_t>(TIFFIsTiled(tiff) ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP));
    if (together == 0 || size_t{together} * width_ * sizeof(uint32_t) > most_bytes)
        return refuse("strips or tiles of more than " + std::to_string(most_bytes >> 20) + " MB");
    char reason[1024] = "";
    TIFFRGBAImage image;
    if (!TIFFRGBAImageOK(tiff, reason) || !TIFFRGBAImageBegin(&image, tiff, 1, reason))
        return refuse(std::string("can't be read: ") + reason);
    const std::unique_ptr<TIFFRGBAImage, deleter<TIFFRGBAImageEnd>> end(&image);
    image.req_orientation = image.orientation = ORIENTATION_TOPLEFT;  // rows() turns the page
    std::vector<uint32_t> raster(size_t{together} * width_);
    std::vector<unsigned char> row(width_);
    for (uint32_t y = 0; y < height_; y += together) {
        const uint32_t count = std::min(together, height_ - y);
        image.row_offset = static_cast<int>(y);
        if (!TIFFRGBAImageGet(&image, raster.data(), width_, count))
            return failed("damaged");
        for (uint32_t i = 0; i < count; i++) {
            const auto from = raster.begin() + static_cast<ptrdiff_t>(size_t{i} * width_);
            std::transform(from, from + width_, row.begin(), grey_of_pixel);
            if (!take(row.data()))
                return false;
        }
    }
    return true;
}

// Gathers the page, and passes it on as it is seen.
bool tiff_source::turned_rows(const take_row &take)
{
    const size_t stride = grey_ ? width_ : (size_t{width_} + 7) / 8;
    if (stride * height_ > most_bytes)
        return refuse("a turned page of more than " + std::to_string(most_bytes >> 20) + " MB");
    std::vector<unsigned char> page;
    page.reserve(stride * height_);
    if (!stored_rows([&](const unsigned char *row) {
            page.insert(page.end(), row, row + stride);
            return true;
        }))
        return false;

    const bool transposed = is_transposed(orientation_);
    const size_t height = transposed ? width_ : height_, width = transposed ? height_ : width_;
    std::vector<unsigned char> row(grey_ ? width : (width + 7) / 8);
    for (size_t y = 0; y < height; y++) {
        std::fill(row.begin(), row.end(), 0);
        for (size_t x = 0; x < width; x++) {
            const size_t from_y = is_upside_down(orientation_) ? height - 1 - y : y,
                         from_x = is_mirrored(orientation_) ? width - 1 - x : x,
                         line = transposed ? from_x : from_y, column = transposed ? from_y : from_x;
            if (grey_)
                row[x] = page[line * stride + column];
            else if (page[line * stride + column / 8] >> (7 - column % 8) & 1)
                row[x / 8] = static_cast<unsigned char>(row[x / 8] | 0x80 >> x % 8);
        }
        if (!take(row.data()))
            return false;
    }
    return true;
}

bool tiff_source::rows(const take_row &take)
{
    return orientation_ == ORIENTATION_TOPLEFT ? stored_rows(take) : turned_rows(take);
}

page_source_ptr open_tiff(unique_fd fd, std::string *why)
{
    auto source = std::make_unique<tiff_source>(std::move(fd));
    if (source->open())
        return source;
    *why = source->why();
    return nullptr;
}

}  // namespace faxtray
