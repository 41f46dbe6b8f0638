// What all formats share: reasons, and the limits on a page.
#include "document/page_source.h"

namespace faxtray {

bool page_source::coded(std::vector<unsigned char> *)
{
    return refuse("has no coded data");
}

bool page_source::refuse(std::string why)
{
    if (why_.empty())
        why_ = std::move(why);
    return false;
}

bool page_source::is_fit(long width, long height)
{
    if (width < 1 || height < 1)
        return refuse("a page without pixels");
    if (width > most_pixels)
        return refuse("a page of " + std::to_string(width) + " pixels a line; at most " +
                      std::to_string(most_pixels) + " are read");
    if (height > most_lines)
        return refuse("a page of " + std::to_string(height) + " lines; at most " +
                      std::to_string(most_lines) + " are read");
    return true;
}

}  // namespace faxtray
