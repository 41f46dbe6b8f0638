// output: what the server sent, made fit for a terminal, a script or the disk.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "client/inbox_client.h"

namespace faxtray {

// A file name for the fax: its own, when that is a plain one; else "fax-ID".
std::string file_name_for(const fax_entry &fax);

void print_faxes(const std::vector<fax_entry> &faxes);  // a table, or a line that there are none
void print_fax(const fax_entry &fax);                   // one line a field

nlohmann::json to_json(const fax_entry &fax);

}  // namespace faxtray
