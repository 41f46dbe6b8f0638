// html_page: the text of the page that faxtray list --html writes. It needs no scripts, and loads nothing but
// the files beside it.
#pragma once

#include <ctime>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

// How every such page begins, so that it is known as ours.
extern const std::string html_mark;

// Text from outside for use between tags and in quoted attributes, so that it is nothing but text there. What
// is not UTF-8 and control characters become U+FFFD.
std::string html_text(const std::string &text);

// The page is these three after another, with a row for each fax. `title` is plain text.
std::string html_head(const std::string &title, size_t faxes, time_t now);
// `file` is the path of the fax's PDF (".pdf") and thumbnail (".png") without the extension; "" if it has
// none, and `note` says why.
std::string html_row(const fax_entry &fax, const std::string &file, const std::string &note);
std::string html_end();

}  // namespace faxtray
