#include "client/deliver_command.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/output.h"
#include "util/command_output.h"

namespace faxtray {

// Seconds: a day. The server answers only after it has carried out the deliveries asked for before, and has
// converted and mailed the fax for every member of a group; a program that it runs may take 15 minutes. To
// give up earlier would not stop it, only tempt the user to deliver the fax twice.
static constexpr int delivery_timeout = 24 * 60 * 60;

exit_status deliver_command(session &s)
{
    // Users' own inboxes hold faxes that have been delivered already.
    if (!s.inbox) {
        fprintf(stderr, "faxtray: deliver takes a fax from an incoming inbox: name it with --inbox\n");
        return EXIT_USAGE;
    }
    faxid_t id = 0;
    fax_entry fax;
    exit_status status = choose_fax(s, &id);
    if (status == EXIT_DONE)
        status = find_fax(s, id, &fax);
    if (status != EXIT_DONE)
        return status;
    s.client.set_timeout(std::max(s.chosen.timeout, delivery_timeout));
    bool delivered = false;
    {
        const waiting_line shown("waiting for the delivery to " + printable(s.chosen.recipient));
        delivered = s.client.deliver_fax(*s.inbox, fax.id, s.chosen.recipient);
    }
    if (!delivered)
        return report_failure(s.client);
    if (s.chosen.json)
        print_json(to_json(fax));
    else
        printf("delivered %s to %s\n", named(fax).c_str(), printable(s.chosen.recipient).c_str());
    return EXIT_DONE;
}

}  // namespace faxtray
