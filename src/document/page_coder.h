// page_coder: the coded pages of a fax, made of a document's: of coded strips and of bitmaps. Every page gets
// the end that is_clean_page() asks for, so that later readers need not code it again.
#pragma once

#include <vector>

#include "document/page_image.h"

namespace faxtray {

// Whether `data`, a strip of `lines` lines coded as DF code `df`, can go into a fax as it is: it is coded
// without fault and has all these lines, no less and no more. What it lacks of an end-of-page code is then
// appended.
bool complete_strip(std::vector<unsigned char> *data, int df, long lines);

// Codes a strip of `from` anew as `to` for VR code `vr`, damage concealed; lines from `most` on are left out.
// False without memory.
bool recode_strip(std::vector<unsigned char> data, int from, int to, int vr, long most,
                  std::vector<unsigned char> *coded);

// Codes a bitmap of 1728 pixels a line. False without memory.
bool code_image(const page_image_t &image, int df, int vr, std::vector<unsigned char> *coded);

}  // namespace faxtray
