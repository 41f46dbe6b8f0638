// A fax is removed only as the one that the user has seen under its id.
#include "client/remove_commands.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "client/output.h"
#include "util/command_output.h"

namespace faxtray {

exit_status remove_fax(session &s, faxid_t id, fax_entry *fax)
{
    const exit_status status = find_fax(s, id, fax);
    if (status == EXIT_DONE && !s.client.commit_fax(s.inbox, id))
        return report_failure(s.client, about(id));
    return status;
}

exit_status rm_command(session &s)
{
    std::vector<faxid_t> ids;
    if (exit_status status = choose_faxes(s, &ids); status != EXIT_DONE)
        return status;
    std::deque<fax_entry> removed;
    const exit_status worst = for_each_fax(ids, [&](faxid_t id) {
        fax_entry fax;
        const exit_status status = remove_fax(s, id, &fax);
        if (status == EXIT_DONE && !s.chosen.json)
            printf("removed %s\n", named(fax).c_str());
        if (status == EXIT_DONE)
            removed.push_back(std::move(fax));
        return status;
    });
    if (s.chosen.json)
        print_faxes_json(removed);
    return worst;
}

// Anything but "y" is no, the end of the input too.
static bool confirmed(size_t faxes)
{
    fprintf(stderr, "Remove %zu fax%s from the server? [y/N] ", faxes, faxes == 1 ? "" : "es");
    int answer = getchar();
    return answer == 'y' || answer == 'Y';
}

exit_status commit_command(session &s)
{
    if (!s.chosen.yes && !isatty(STDIN_FILENO)) {
        fprintf(stderr, "faxtray: commit asks first, and there is no terminal: use --yes\n");
        return EXIT_USAGE;
    }
    // The server remembers what has been listed and removes that, so this listing is what is to be confirmed.
    listing all;
    if (!s.client.list(s.inbox, &all))
        return report_failure(s.client);
    if (all.faxes.empty())
        return report_empty_inbox();
    s.shown.replace(all.faxes);
    if (!s.chosen.json)
        print_faxes(all.faxes);
    fflush(stdout);  // before the question on standard error
    if (!s.chosen.yes && !confirmed(all.faxes.size())) {
        fprintf(stderr, "faxtray: nothing removed\n");
        return EXIT_NOTHING;
    }
    // For the server a listing of a single fax does not count as shown, so that fax is removed by its id.
    bool done = all.faxes.size() == 1 ? s.client.commit_fax(s.inbox, all.faxes[0].id)
                                      : s.client.commit_index(s.inbox);
    if (!done)
        return report_failure(s.client);
    if (s.chosen.json)
        print_faxes_json(all.faxes);
    return EXIT_DONE;
}

}  // namespace faxtray
