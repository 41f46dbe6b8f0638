// Whoever does not answer is asked under a time limit of its own; the programs that are not running yet when
// this is run before a start, faxtrayd above all, are no problem.
#include "check/machine_checks.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "check/inbox_checks.h"
#include "check/needs.h"
#include "check/user_checks.h"
#include "config/attributes.h"
#include "config/user_settings.h"
#include "protocol/records.h"
#include "registry/regd_client.h"
#include "rpc/host_address.h"
#include "rpc/listen_address.h"
#include "rpc/port_mapper.h"
#include "rpc/trusted_client.h"
#include "util/access.h"
#include "util/paths.h"
#include "util/site_programs.h"
#include "util/text.h"

namespace faxtray {

static constexpr timeval patience = {3, 0};  // for each answer

// Commands

// The converters of a file format, once for each.
static void check_converters(int format, const place_t &place, problems_t &problems)
{
    for (const std::string &converter : converters_of(format))
        if (!is_command(converter))
            problems.add(trap("no-converter"), place,
                         {as_get_value_string(AS_DELIVERY_FILE_FORMAT, format), converter});
}

// The first word of an exec command, unless only the shell knows what it will be.
static std::string program_of(const av_list_t *user)
{
    const std::string command = command_text(av_getv(user, as_get_attr(AS_DELIVERY_METHOD)));
    const size_t begin = command.find_first_not_of(" \t");
    const std::string word = command.substr(begin, command.find_first_of(" \t;&|<>", begin) - begin);
    return word.find_first_of("$`'\"\\(){}*?[]~=!") == word.npos ? word : "";
}

static void check_commands_of(const seen_users_t &list, const av_list_t *user, needs_t &needs,
                              problems_t &problems)
{
    const seen_section_t *section = list.section_of(user);
    const size_t known = needs.formats.size();
    add_needs(user, needs);
    if (is_group(user))
        return;
    if (needs.formats.size() > known)
        check_converters(as_get_value_handle_av(AS_DELIVERY_FILE_FORMAT, user),
                         list.place_of(section, as_get_attr(AS_DELIVERY_FILE_FORMAT)), problems);
    if (delivery_of(user) == IV_DELIVERY_METHOD_EXEC)
        if (const std::string program = program_of(user); !program.empty() && !is_command(program))
            problems.add(trap("no-command"), list.place_of(section, as_get_attr(AS_DELIVERY_METHOD)),
                         {program});
}

static void check_needs(const needs_t &needs, problems_t &problems)
{
    const std::string found = needs.short_names ? directory_fault(get_temp_dir()) : "";
    if (!found.empty())
        problems.add(trap("temp-unusable"), {}, {get_temp_dir(), found});
    if ((needs.mail || needs.notices) && execution_error(mail_agent_file) != 0)
        problems.add(trap("no-mail-agent"), {},
                     {mail_agent_file, needs.mail ? "faxes are to be delivered by mail: those deliveries fail"
                                                  : "users want notices: none is sent"});
}

// The network

static std::string owner_text(const mapping_t &mapping)
{
    if (!mapping.owner[0] || strcmp(mapping.owner, "unknown") == 0)
        return "an unknown user";
    return strcmp(mapping.owner, "superuser") == 0 ? "root" : std::string("user ") + mapping.owner;
}

// False if there is no port mapper to ask of anything.
static bool check_registration(problems_t &problems)
{
    mapping_t mapping;
    if (!port_mapper_find(IN_PROG, IN_VERS, deadline_after(patience), &mapping)) {
        problems.add(trap("no-rpcbind"), {}, {rpc_create_reason()});
        return false;
    }
    if (mapping.port == 0)
        return true;
    const std::string port = std::to_string(mapping.port);
    if (!is_trusted(mapping) && geteuid() != 0)
        problems.add(trap("foreign-registration"), {}, {port, owner_text(mapping)});
    else if (!rpc_answers_on("localhost", IN_PROG, IN_VERS, patience))
        problems.add(trap("stale-registration"), {}, {port, owner_text(mapping)});
    return true;
}

// The registry

// Settings of the administrator that the daemon takes from the registry, not from the list.
static void compare_admin(const av_list_t *theirs, const av_list_t *ours, problems_t &problems)
{
    for (const int attr : {AS_ADMIN_NOTIFY_LEVEL, AS_ADMIN_EXCEPTION_VOLUME, AS_EMAIL_ADDRESS,
                           AS_HOW_TO_NOTIFY, AS_WHEN_TO_NOTIFY, AS_SERVER_MAIL_FROM}) {
        const char *name = as_get_attr(attr), *their_value = av_getv(theirs, name),
                   *our_value = av_getv(ours, name);
        if (strcmp(their_value ? their_value : "", our_value ? our_value : "") != 0)
            problems.add(trap("other-registry"), {}, {name, their_value ? their_value : ""});
    }
}

static void ask_registry(const av_list_t *admin, problems_t &problems)
{
    regd_set_timeout(patience);
    regd_handle_t *registry = regd_open(nullptr, 1);
    const av_list_t *found = registry ? regd_get_ui_entry(registry, regd_credentials(), "admin") : nullptr;
    if (found)
        compare_admin(found, admin, problems);
    else
        problems.add(trap("registry-without-admin"), {}, {regd_error() ? regd_error()->message : "no reply"});
    regd_close(registry);
}

static void check_registry(const av_list_t *admin, const needs_t &needs, problems_t &problems)
{
    std::string stranger;
    const client_ptr client(trusted_clnt_create(REGD_PROG_BASE + 1, REGD_VERS, patience, &stranger));
    if (!stranger.empty())
        problems.add(trap("foreign-registry"), {}, {stranger});
    else if (client && rpc_answers(client.get(), patience))
        ask_registry(admin, problems);
    else if (needs.mail || needs.notices)
        problems.add(trap("no-registry"), {});
}

// The environment

static void check_environment(const char *work_directory, problems_t &problems)
{
    const char *home = getenv("ONDRIXHOME"), *listen = getenv("FAXTRAY_LISTEN");
    if (home && !(is_valid_path(home) && is_full_path(home)))
        problems.add(trap("bad-home"), {}, {home});
    sockaddr_in address;
    if (listen && !parse_listen_address(listen, &address))
        problems.add(trap("bad-listen"), {}, {listen});
    const std::string found = directory_fault(work_directory);
    if (!found.empty())
        problems.add(trap("work-unusable"), {}, {work_directory, found});
}

void check_machine(const seen_users_t &list, const char *work_directory, problems_t &problems)
{
    check_environment(work_directory, problems);
    needs_t needs;
    const av_list_t *admin = nullptr;
    for (const av_list_t *user = list.users.head(); user; user = user->next) {
        check_commands_of(list, user, needs, problems);
        if (strcmp(user->key, "admin") == 0)
            admin = user;
    }
    check_needs(needs, problems);
    struct utsname host;
    if (uname(&host) == 0 && !find_host(host.nodename, patience.tv_sec))
        problems.add(trap("no-host-name"), {}, {host.nodename});
    if (check_registration(problems))
        check_registry(admin, needs, problems);
}

}  // namespace faxtray
