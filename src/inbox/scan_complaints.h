// scan_complaints: what a scan has to complain about the files of an inbox.
//
// Complaints are traced at once, and logged at the end unless the last scan had the same. So a file that
// fails every scan is in the log once, not once a request.
#pragma once

#include <string>

namespace faxtray {

class scan_complaints_t {
public:
    // Adds one line. In the log `program` and ": " stand in front of it, unless that is "". Control
    // characters, which names of files may contain, are escaped.
    void add(const char *program, const char *format, ...) __attribute__((format(printf, 3, 4)));

    // The log has a part of it already, and gets the rest in any case.
    void is_in_log() { in_log_ = true; }

    // Ends the scan. `last` is what the scan before complained of, and becomes what this one did. Returns
    // whether that is the same, and was not logged again.
    bool conclude(std::string &last);

private:
    std::string log_;
    bool in_log_ = false;
};

}  // namespace faxtray
