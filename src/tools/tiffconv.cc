// tiffconv: the command that makes a TIFF of a fax file, as deliveries call it.
#include "document/tiff_writer.h"
#include "tools/converter.h"

static constexpr faxtray::converter_t tiffconv = {
    "tiffconv",
    "tiffconv [-m] FAX TIFF\n"
    "\n"
    "Makes a TIFF class F of a fax file. An old file TIFF is replaced.\n"
    "\n"
    "  -m         all pages in one file, which is so without it too",
    "m", 2, [](const std::string &fax, const std::string &tiff) {
        return faxtray::convert_to_document(fax, tiff, faxtray::write_tiff);
    }};

int main(int argc, char **argv)
{
    return faxtray::run_converter(argc, argv, tiffconv);
}
