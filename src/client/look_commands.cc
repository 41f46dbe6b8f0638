// Whatever is listed is read whole before anything is printed: a listing that breaks off prints nothing that
// a script could take for all there is.
#include "client/look_commands.h"

#include <cstdio>
#include <nlohmann/json.hpp>

#include "client/html_list.h"
#include "client/output.h"
#include "util/command_output.h"

namespace faxtray {

// Prints a whole listing. It is remembered first: a script may use the ids before this command ends.
static void show(session &s, const std::deque<fax_entry> &faxes)
{
    s.shown.replace(faxes);
    if (s.chosen.json)
        print_faxes_json(faxes);
    else
        print_faxes(faxes);
}

exit_status list_command(session &s)
{
    listing all;
    if (!s.client.list(s.inbox, &all))
        return report_failure(s.client);
    if (s.chosen.directory.empty()) {
        show(s, all.faxes);
        return EXIT_DONE;
    }
    const exit_status status = write_html_list(s, all.faxes);
    if (s.chosen.json)
        show(s, all.faxes);
    else if (status == EXIT_DONE || status == EXIT_REFUSED)
        printf("%s/index.html\n", printable(s.chosen.directory).c_str());
    return status;
}

exit_status count_command(session &s)
{
    u_int count = 0;
    if (!s.client.get_fax_count(s.inbox, &count))
        return report_failure(s.client);
    if (s.chosen.json)
        print_json({{"count", count}});
    else
        printf("%u\n", count);
    return EXIT_DONE;
}

exit_status info_command(session &s)
{
    // The two ways do not see the same: the server's oldest fax is the oldest that can be read.
    std::optional<fax_entry> fax;
    faxid_t id = 0;
    if (s.chosen.faxes.empty()) {
        if (!s.client.get_fax_info(s.inbox, &fax))
            return report_failure(s.client);
        if (!fax)
            return report_empty_inbox();
        s.shown.add(*fax);
    } else {
        exit_status status = choose_fax(s, &id);
        if (status == EXIT_DONE)
            status = find_fax(s, id, &fax.emplace());
        if (status != EXIT_DONE)
            return status;
    }
    if (s.chosen.json)
        print_json(to_json(*fax));
    else
        print_fax(*fax);
    return EXIT_DONE;
}

exit_status rev_command(session &s)
{
    revision rev;
    if (!s.client.trayd_rev(&rev))
        return report_failure(s.client);
    if (s.chosen.json)
        print_json({{"major", rev.major}, {"minor", rev.minor}, {"revision", rev.text}});
    else
        printf("protocol %d.%d, %s\n", rev.major, rev.minor, printable(rev.text).c_str());
    return EXIT_DONE;
}

exit_status inboxes_command(session &s)
{
    std::vector<incoming_inbox> inboxes;
    if (!s.client.get_df(&inboxes))
        return report_failure(s.client);
    if (s.chosen.json) {
        nlohmann::json array = nlohmann::json::array();
        for (const incoming_inbox &inbox : inboxes)
            array.push_back({{"handle", inbox.handle}, {"description", inbox.description}});
        print_json(array);
        return EXIT_DONE;
    }
    // Names come from the server's files and are printed like all strangers' text.
    printf("%-8s  %s\n", "HANDLE", "DESCRIPTION");
    for (const incoming_inbox &inbox : inboxes)
        printf("%-8s  %s\n", printable(inbox.handle).c_str(), printable(inbox.description).c_str());
    return EXIT_DONE;
}

exit_status recipients_command(session &s)
{
    recipient_list list;
    if (!s.client.get_ui(0, &list))
        return report_failure(s.client);
    if (s.chosen.json) {
        nlohmann::json array = nlohmann::json::array();
        for (const recipient &who : list.recipients)
            array.push_back({{"name", who.name}, {"label", who.label}, {"is_group", who.is_group}});
        print_json(array);
        return EXIT_DONE;
    }
    printf("%-5s  %-16s  %s\n", "KIND", "NAME", "LABEL");
    for (const recipient &who : list.recipients)
        printf("%-5s  %-16s  %s\n", who.is_group ? "group" : "user", printable(who.name).c_str(),
               printable(who.label).c_str());
    return EXIT_DONE;
}

}  // namespace faxtray
