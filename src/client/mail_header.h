// mail_header: text from outside as values in the headers of mail (RFC 5322), which are US-ASCII. Line ends
// are dropped, so that nothing in a value begins another header; what is not UTF-8, and control characters,
// become U+FFFD.
#pragma once

#include <string>

namespace faxtray {

// A value that is text, as of Subject: in encoded words (RFC 2047) unless it is short and plain.
std::string header_text(const std::string &text);

// One address under a name, as of From. It is made of the name's letters and digits, so that mail programs
// take different names for different people; its domain is one that never is (RFC 2606).
std::string header_mailbox(const std::string &name);

// `; name="text"`, a parameter (RFC 2045) or, if it is not plain, its extended form (RFC 2231).
std::string header_parameter(const std::string &name, const std::string &text);

}  // namespace faxtray
