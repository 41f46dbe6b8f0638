// The order of the attributes is that of received faxes.
#include "document/fax_file_writer.h"

#include <endian.h>

#include <cstdint>

#include "faxfile/fax_header.h"
#include "faxfile/fax_params.h"
#include "util/io.h"

namespace faxtray {

static bool put_all(fax_header_t *header, const fax_attributes_t &attributes)
{
    for (const auto &[name, value] : attributes)
        if (set_fax_header_av(header, name.c_str(), value.c_str()) != 1)
            return false;
    return true;
}

bool write_fax_start(int fd, const fax_facts_t &facts)
{
    const fax_header_ptr header(new_fax_header("#PAGES", std::to_string(facts.pages).c_str()));
    return header && put_all(header.get(), facts.call) &&
           set_vertical_resolution(header.get(), facts.vr) == 1 &&
           set_compression_mode(header.get(), facts.df) == 1 && put_all(header.get(), facts.others) &&
           write_fax_header(fd, header.get()) == 1;
}

bool write_fax_page(int fd, const std::vector<unsigned char> &coded)
{
    const uint32_t length = htobe32(static_cast<uint32_t>(coded.size()));
    return write_full(fd, &length, sizeof length) && write_full(fd, coded.data(), coded.size());
}

}  // namespace faxtray
