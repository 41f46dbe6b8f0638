// get_command: fetches faxes into files, as they are or in another form.
#pragma once

#include "client/client_session.h"
#include "client/fax_forms.h"

namespace faxtray {

exit_status get_command(session &s);

// Fetches one fax of a listing in that form (null: as it is) to where s.chosen.output says; `files` gets the
// paths of its files, which are whole and on the disk. On failure, with the reason printed, the exit status.
exit_status get_fax(session &s, const fax_entry &fax, const fax_form_t *form,
                    std::vector<std::string> *files);

}  // namespace faxtray
