// output: prints what the server sent, for people and for scripts, and makes file names of it. Names and
// senders are strangers' text: nothing of them reaches the terminal or the disk unchecked.
#pragma once

#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

// A file name for the fax: its own if that is a plain, visible name, else "fax-ID".
std::string file_name_for(const fax_entry &fax);

// A fax in the words that say what has been done with it: "NAME (sender NUMBER)".
std::string named(const fax_entry &fax);

// Local time, "2026-11-21 04:39:13"; "?" for a time that no calendar has.
std::string date_text(time_t t);

void print_faxes(const std::deque<fax_entry> &faxes);       // a table, or the line "no faxes"
void print_faxes_json(const std::deque<fax_entry> &faxes);  // an array
void print_fax(const fax_entry &fax);                       // one field a line
// A row of the table as a whole; `name` instead of the fax's own.
void print_fax_row(const fax_entry &fax, int sender_width, const std::string &name);

nlohmann::json to_json(const fax_entry &fax);

}  // namespace faxtray
