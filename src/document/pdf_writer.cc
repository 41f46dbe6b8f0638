// qpdf wants to know how high a page is before it asks for the page's data. So every page is read twice: to
// count its lines, then to write it; where it lies in the file, and whether it is clean, is remembered.
#define POINTERHOLDER_TRANSITION 4  // qpdf's headers want to hear that we use std::shared_ptr only
#include "document/pdf_writer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFWriter.hh>
#include <qpdf/QUtil.hh>
#include <stdexcept>

#include "document/coded_page.h"
#include "util/io.h"
#include "util/standard_options.h"

namespace faxtray {

namespace {

// Where the document goes.
class descriptor_pipeline : public Pipeline {
public:
    explicit descriptor_pipeline(int fd) : Pipeline("descriptor", nullptr), fd_(fd) {}

    void write(const unsigned char *bytes, size_t n) override
    {
        if (!write_full(fd_, bytes, n))
            throw std::runtime_error(strerror(errno));
    }
    void finish() override {}

private:
    int fd_;
};

// Thrown where the reason has been printed already.
struct reported : std::exception {};

}  // namespace

// "D:20261122113000Z": the time as PDF writes it, in UTC, so that it is the same wherever we run.
static std::string pdf_time(time_t time)
{
    struct tm utc = {};
    char text[24] = "";
    gmtime_r(&time, &utc);
    strftime(text, sizeof text, "D:%Y%m%d%H%M%SZ", &utc);
    return text;
}

// Text from a header: UTF-8 where it is that, otherwise Latin-1 as Windows has it. Never its bytes as they
// are: PDF reads a string that begins with FE FF as UTF-16.
static QPDFObjectHandle text_object(const std::string &text)
{
    bool has_8_bit, is_utf8, is_utf16;
    QUtil::analyze_encoding(text, has_8_bit, is_utf8, is_utf16);
    return QPDFObjectHandle::newUnicodeString(has_8_bit && !is_utf8 ? QUtil::win_ansi_to_utf8(text) : text);
}

static void add_information(QPDF &pdf, const fax_pages_t &fax, const page_range_t &pages)
{
    auto information = QPDFObjectHandle::newDictionary();
    const char *sender = get_fax_header_value(fax.header.get(), "SENDER_FAX#");
    const long count = pages.last - pages.first + 1;
    information.replaceKey("/Title", text_object(fax_title(fax)));
    if (sender && *sender)
        information.replaceKey("/Author", text_object(sender));
    information.replaceKey("/Subject",
                           text_object(std::to_string(count) + (count == 1 ? " page" : " pages")));
    information.replaceKey("/CreationDate", QPDFObjectHandle::newString(pdf_time(fax.received)));
    information.replaceKey("/Producer", text_object(version_text("faxtray")));
    pdf.getTrailer().replaceKey("/Info", pdf.makeIndirectObject(information));
}

// A stream whose data are read when they are written.
static QPDFObjectHandle image_object(QPDF &pdf, fax_pages_t *fax, const page_place_t &place,
                                     const page_outline_t &outline)
{
    const std::string size =
        " /Width " + std::to_string(changes_width) + " /Height " + std::to_string(outline.lines);
    auto image = QPDFObjectHandle::newStream(&pdf);
    image.replaceDict(QPDFObjectHandle::parse("<< /Type /XObject /Subtype /Image /ColorSpace /DeviceGray "
                                              "/BitsPerComponent 1" +
                                              size + " >>"));
    const auto provide = [fax, place, outline](Pipeline *to) {
        coded_page_t page;
        if (!return_to_page(fax, place) || !read_outlined_page(fax, outline, &page))
            throw reported();
        to->write(page.data.data(), page.data.size());
        to->finish();
    };
    image.replaceStreamData(provide, QPDFObjectHandle::newName("/CCITTFaxDecode"),
                            QPDFObjectHandle::parse("<< /K -1 /Columns " + std::to_string(changes_width) +
                                                    " /Rows " + std::to_string(outline.lines) + " >>"));
    return image;
}

// Adds the next page of the fax: its size, and one image that fills it.
static void add_page(QPDF &pdf, fax_pages_t *fax)
{
    const page_place_t place = {fax->next, fax->left};
    page_outline_t outline;
    if (!outline_page(fax, &outline))
        throw reported();
    const std::string width = points(changes_width, horizontal_dpi),
                      height = points(outline.lines, fax->vertical_dpi);
    auto page = QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 " + width + " " + height +
                                        "] /Resources << /XObject << >> >> >>");
    page.getKey("/Resources").getKey("/XObject").replaceKey("/Fax", image_object(pdf, fax, place, outline));
    page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, "q " + width + " 0 0 " + height +
                                                                       " 0 0 cm /Fax Do Q\n"));
    pdf.addPage(pdf.makeIndirectObject(page), false);
}

bool write_pdf(fax_pages_t *fax, page_range_t pages, int fd)
try {
    if (!find_pages(fax, &pages))
        return false;
    QPDF pdf;
    pdf.emptyPDF();
    add_information(pdf, *fax, pages);
    while (fax->next <= pages.last)
        add_page(pdf, fax);

    descriptor_pipeline output(fd);
    QPDFWriter writer(pdf);
    writer.setOutputPipeline(&output);
    writer.setStreamDataMode(qpdf_s_preserve);  // as we made them
    writer.setDeterministicID(true);
    writer.write();
    return true;
} catch (const reported &) {
    return false;
} catch (const std::exception &error) {
    return complain(*fax, std::string("can't write the PDF: ") + error.what());
}

}  // namespace faxtray
