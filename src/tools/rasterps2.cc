// rasterps2: the command that makes PostScript of a fax file, as deliveries call it.
#include "document/postscript_writer.h"
#include "tools/converter.h"

static constexpr faxtray::converter_t rasterps2 = {
    "rasterps2",
    "rasterps2 [-f POSTSCRIPT] FAX\n"
    "\n"
    "Makes PostScript, Level 2, of a fax file, a page of each page.\n"
    "\n"
    "  -f FILE    write it there, not to standard output; an old file is replaced",
    "f:", 1, [](const std::string &fax, const std::string &postscript) {
        return faxtray::convert_to_document(fax, postscript.empty() ? "-" : postscript,
                                            faxtray::write_postscript);
    }};

int main(int argc, char **argv)
{
    return faxtray::run_converter(argc, argv, rasterps2);
}
