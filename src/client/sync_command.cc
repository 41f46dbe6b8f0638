// A fax is known by what it is (fax_uuid), not by its id, which a restart of the server changes.
#include "client/sync_command.h"

#include <sys/stat.h>

#include <cstdio>

#include "client/fax_message.h"
#include "client/maildir.h"
#include "client/output.h"

namespace faxtray {

static exit_status add_fax(session &s, maildir *box, const fax_entry &fax, const std::string &uuid)
{
    FILE *message = box->begin(uuid, fax.mtime);
    if (!message)
        return EXIT_LOCAL;
    const exit_status status = write_fax_message(s, fax, uuid, message);
    if (status != EXIT_DONE)
        return status;
    return box->deliver() ? EXIT_DONE : EXIT_LOCAL;
}

// Adds what is not there yet; `added` gets these faxes. One that cannot be had does not keep the others from
// coming, but where the server or the disk is the trouble, the rest is left to the next run.
static exit_status add_new(session &s, maildir *box, const std::deque<fax_entry> &faxes,
                           std::deque<fax_entry> *added)
{
    exit_status worst = EXIT_DONE;
    for (const fax_entry &fax : faxes) {
        const std::string uuid = fax_uuid(s, fax);
        if (box->has(uuid))
            continue;
        const exit_status status = add_fax(s, box, fax, uuid);
        worst = std::max(worst, status);
        if (status == EXIT_UNREACHABLE || status == EXIT_LOCAL)
            return worst;
        if (status != EXIT_DONE)
            continue;
        added->push_back(fax);
        if (!s.chosen.json)
            printf("%s\n", named(fax).c_str());
    }
    return worst;
}

exit_status sync_command(session &s)
{
    umask(077);
    maildir box;
    listing inbox;
    std::deque<fax_entry> added;
    if (!box.open(s.chosen.directory))
        return EXIT_LOCAL;
    if (!s.client.list(s.inbox, &inbox))
        return report_failure(s.client);
    const exit_status status = add_new(s, &box, inbox.faxes, &added);
    if (s.chosen.json)
        print_faxes_json(added);
    return box.finish() ? status : std::max(status, EXIT_LOCAL);
}

}  // namespace faxtray
