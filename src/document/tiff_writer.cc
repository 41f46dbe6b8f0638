// libtiff writes by offset, and reads what it wrote before to link each page to the one before it.
#include "document/tiff_writer.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "disk/unnamed_file.h"
#include "document/coded_page.h"
#include "faxfile/fax_params.h"
#include "util/io.h"
#include "util/standard_options.h"

namespace faxtray {

using tiff_ptr = std::unique_ptr<TIFF, deleter<TIFFClose>>;
using tiff_options_ptr = std::unique_ptr<TIFFOpenOptions, deleter<TIFFOpenOptionsFree>>;

// Prints libtiff's messages as ours.
__attribute__((format(printf, 4, 0))) static int report(TIFF *, void *, const char *, const char *format,
                                                        va_list values)
{
    fprintf(stderr, "%s: can't write the TIFF: ", program_invocation_short_name);
    vfprintf(stderr, format, values);
    fputc('\n', stderr);
    return 1;
}

static tiff_ptr open_tiff(int fd)
{
    const tiff_options_ptr options(TIFFOpenOptionsAlloc());
    unique_fd own(fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));  // for TIFFClose to close
    if (!options || !own)
        return nullptr;
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), report, nullptr);
    tiff_ptr tiff(TIFFFdOpenExt(own.get(), "fax", "wl", options.get()));
    if (tiff)
        static_cast<void>(own.release());
    return tiff;
}

// "2026:11:22 11:30:00", the local time.
static std::string tiff_time(time_t time)
{
    struct tm local = {};
    char text[20] = "";
    localtime_r(&time, &local);
    strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &local);
    return text;
}

// The fields of the page that libtiff is to write next: those that class F requires, and who made it when.
static void set_fields(TIFF *tiff, const fax_pages_t &fax, const coded_page_t &page)
{
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, changes_width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(page.lines));
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(page.lines));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, static_cast<double>(horizontal_dpi));
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, static_cast<double>(fax.vertical_dpi));
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_SOFTWARE, version_text("faxtray").c_str());
    TIFFSetField(tiff, TIFFTAG_DATETIME, tiff_time(fax.received).c_str());
    if (fax.df == DF_MMR) {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    } else {
        TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
        // EOLs have no fill that would end them on a byte.
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, fax.df == DF_MR ? GROUP3OPT_2DENCODING : 0);
    }
    const long bad = page.counts.repeated + page.counts.ended_short;
    TIFFSetField(tiff, TIFFTAG_BADFAXLINES, static_cast<uint32_t>(bad));
    TIFFSetField(tiff, TIFFTAG_CLEANFAXDATA, bad > 0 ? CLEANFAXDATA_REGENERATED : CLEANFAXDATA_CLEAN);
}

static bool write_pages(fax_pages_t *fax, const page_range_t &pages, TIFF *tiff)
{
    coded_page_t page;
    const auto count = static_cast<int>(pages.last - pages.first + 1);
    for (int n = 0; n < count; n++) {
        if (!read_coded_page(fax, fax->df, &page))
            return false;
        set_fields(tiff, *fax, page);
        TIFFSetField(tiff, TIFFTAG_PAGENUMBER, n, count);
        if (TIFFWriteRawStrip(tiff, 0, page.data.data(), static_cast<tmsize_t>(page.data.size())) < 0 ||
            !TIFFWriteDirectory(tiff))
            return false;
    }
    return true;
}

// Whether libtiff can write there.
static bool is_empty_file(int fd)
{
    struct stat status;
    const int flags = fcntl(fd, F_GETFL);
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0 &&
           (flags & O_ACCMODE) == O_RDWR && !(flags & O_APPEND);
}

bool write_tiff(fax_pages_t *fax, page_range_t pages, int fd)
{
    if (!find_pages(fax, &pages))
        return false;
    unique_fd unnamed;
    const bool direct = is_empty_file(fd);
    if (!direct && !(unnamed = make_unnamed_file()))
        return complain(*fax, std::string("can't create a temporary file: ") + strerror(errno));
    const int file = direct ? fd : unnamed.get();
    tiff_ptr tiff = open_tiff(file);
    if (!tiff)
        return complain(*fax, "can't begin the TIFF");
    if (!write_pages(fax, pages, tiff.get()) || !TIFFFlush(tiff.get()))
        return false;
    tiff.reset();
    return direct || (lseek(file, 0, SEEK_SET) == 0 && copy_rest(file, fd)) ||
           complain(*fax, std::string("can't write the TIFF: ") + strerror(errno));
}

}  // namespace faxtray
