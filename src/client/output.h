// output: what the server sent, made fit for a terminal, a script or the disk.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

// `text` with all that the locale cannot print as "\xNN" and "\" as "\\", so that nothing a stranger
// wrote steers the terminal.
std::string printable(const std::string &text);
std::string printable_lines(const std::string &text);  // line feeds stay; later lines are indented

// A file name for the fax: its own, when that is a plain one; else "fax-ID".
std::string file_name_for(const fax_entry &fax);

void print_faxes(const std::vector<fax_entry> &faxes);  // a table, or a line that there are none
void print_fax(const fax_entry &fax);                   // one line a field

nlohmann::json to_json(const fax_entry &fax);
void print_json(const nlohmann::json &value);  // bytes that are no UTF-8 are replaced

// How far a fetch has come, on a terminal at standard error; silent elsewhere.
class progress_bar {
public:
    progress_bar(std::string what, u_int total);
    ~progress_bar();  // takes it off the screen
    progress_bar(const progress_bar &) = delete;
    progress_bar &operator=(const progress_bar &) = delete;
    void add(size_t bytes);

private:
    std::string what_;
    unsigned long long total_, done_ = 0;
    bool shown_;
};

}  // namespace faxtray
