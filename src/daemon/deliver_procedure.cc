// Procedure 7: the checks, the choice between one recipient and a group, the deliveries, and the reply, which
// lists those that failed.
#include "daemon/deliver_procedure.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "config/attributes.h"
#include "daemon/bounded_text.h"
#include "daemon/delivery_queue.h"
#include "daemon/replies.h"
#include "daemon/request_checks.h"
#include "deliver/deliver.h"
#include "deliver/mail_agent.h"
#include "deliver/notify.h"
#include "disk/work_note.h"
#include "inbox/inbox_index.h"
#include "inbox/inbox_lists.h"
#include "inbox/listed_file.h"
#include "log/access_log.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/access.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/settings.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

// How the last delivery went, in words: deliver_fax()'s account, or that the recipient is not in the list.
static char account[4096];

// The checks. One that fails fills `result` with the error reply to send.

// Like check_forwarder, with a message of its own. Kept: clients know this procedure by it.
static bool check_forwards_for(const client_deliver_req_t &request, const char *inbox, in_res_t &result)
{
    if (check_forwarder(request.pw, inbox, result))
        return true;
    error_reply(result, IE_NOT_DF, 0, "Trayd: User \"%s\" is not DF for inbox \"%s\".",
                shown(name_of(request.pw)), inbox);
    trprintf("deliver_fax_1_svc: %s\n", buf);
    return false;
}

// The incoming inbox with that handle, its index loaded, or null.
static const user_node_t *load_incoming(const char *inbox, in_res_t &result)
{
    user_node_t *node = find_node(incoming, inbox);
    if (!node) {
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid inbox name: [%s].", inbox);
        trprintf("deliver_fax_1_svc: %s\n", buf);
        return nullptr;
    }
    if (!node->index && !load_inbox(node)) {
        // Kept: "for for"; those who search traces search for it.
        trprintf("deliver_fax_1_svc: load_inbox failed for for inbox \"%s\".\n", inbox);
        error_reply(result, IE_STATE, 0, "Trayd: Can't update index.");
        return nullptr;
    }
    return node;
}

// Writes the fax's path into `path`, of MAXPATHLEN bytes, and checks that the fax is readable, and the file
// that was listed.
static bool find_fax(const user_node_t &node, faxid_t faxid, char *path, in_res_t &result)
{
    const char *inbox = inbox_name(&node);
    const int id = static_cast<int>(faxid);
    const file_node_t *fax = get_file_node(node.index, faxid);
    if (!fax) {
        trprintf("deliver_fax_1_svc: get_file_node failed for faxid \"%d\" in inbox \"%s\".\n", id, inbox);
        error_reply(result, IE_INVALID, 0, "Trayd: Invalid fax id: %d", id);
        return false;
    }
    errno = 0;  // mk_path may refuse a name without a system call
    const char *made = mk_path(node.inbox, fax->name);
    if (!made) {
        const int error = errno;
        trprintf("deliver_fax_1_svc: mk_path failed for fax \"%s\" in inbox \"%s\".\n", fax->name, inbox);
        // Kept: "Inbox:", unlike all other replies; clients tell it by that.
        error_reply(result, IE_SYSTEM, error, "Inbox: Invalid file path for fax id: %d", id);
        return false;
    }
    snprintf(path, MAXPATHLEN, "%s", made);  // mk_path's static buffer is about to be overwritten
    if (!open_listed(node.index, faxid, path)) {
        const int error = errno == ESTALE ? ESTALE : EACCES;
        trprintf(
            "deliver_fax_1_svc: file \"%s\" corresponding to faxid \"%ld\" in inbox \"%s\" is unreadable.\n",
            path, static_cast<long>(faxid), inbox);
        error_reply(result, IE_SYSTEM, error, "Inbox: Fax id %d file \"%s\" unreadable.", id, path);
        return false;
    }
    return true;
}

// The whole string is one name: lists of names are only in group entries.
static const av_list_t *find_recipient(const char *recipients, in_res_t &result)
{
    const av_list_t *entry = recipients ? User_list.users.get(recipients) : nullptr;
    if (!entry) {
        trprintf("deliver_fax_1_svc: invalid recipient: [%s].\n", shown(recipients));
        error_reply(result, IE_BAD_RECIPIENT, 0, "Trayd: Invalid recipient name: [%s].", shown(recipients));
    }
    return entry;
}

// The deliveries.

namespace {

// What is to be sent: to one recipient, or to each member of a group.
struct send_t {
    const char *names;  // comma-separated
    bool single;
    int code;             // of the error reply if any delivery fails
    const char *message;  // how that reply begins
};

}  // namespace

// Any entry with the attribute is a group, whatever else it says.
static send_t choose_send(const av_list_t *entry, const char *recipients)
{
    if (const av_node_t *group = as_get_av_node(AS_GROUP, entry)) {
        trprintf("deliver_fax_1_svc:  group send [%s]\n", group->value);
        return {group->value, false, IE_GROUP_SEND_FAILED, "Trayd: Group send failed for: "};
    }
    trprintf("deliver_fax_1_svc:  single send [%s]\n", recipients);
    return {recipients, true, IE_SEND_FAILED, "Trayd: Send failed for: "};
}

// The results of deliver_fax, in deliver.h's order, as the access log has them.
static const char *result_name(int ret)
{
    static constexpr const char *names[] = {"ok",        "problem-fax", "no-method",     "bad-recipient",
                                            "no-memory", "failed",      "command-failed"};
    return ret >= 0 && static_cast<size_t>(ret) < std::size(names) ? names[ret] : "failed";
}

// The line of the access log. What was mailed or given to a command has left no file at its destination.
static void log_delivery(const char *path, const char *name, const char *destination, int ret)
{
    char detail[32];
    const int agent_status = take_fax_mail_status();
    snprintf(detail, sizeof detail, "agent-status-%d", agent_status);
    access_delivery(path, name, is_readable_file(destination) ? destination : nullptr, result_name(ret),
                    agent_status != 0 ? detail : nullptr);
}

// Delivers the fax that is open at `fax` to the recipient `entry` and notifies those concerned; true on
// success. Kept: a problem fax counts as failed although it arrived, and recipient and administrator are
// notified of a failure.
static bool deliver_to(const av_list_t *entry, const char *name, int fax, const char *path)
{
    static char destination[MAXPATHLEN];
    destination[0] = '\0';
    const int ret = deliver_open_fax(fax, entry, path, account, destination);
    trprintf("deliver_fax_1_svc: ret=%d, %s, %s->%s\n", ret, name, path, destination);
    log_delivery(path, entry->key, destination, ret);
    if (ret == DELIVERED) {
        notify(entry, "faxtray: Fax delivered to you", account, IV_WHEN_TO_NOTIFY_FAX_INCOMING);
        return true;
    }
    // Kept: the administrator of the user list; the registry's, who gets exceptions, may be another.
    static constexpr char unable[] = "faxtray: Unable to deliver your fax";
    notify(entry, unable, account, IV_WHEN_TO_NOTIFY_FAX_FAILURES);
    notify(User_list.users.get("admin"), unable, account, IV_WHEN_TO_NOTIFY_FAX_FAILURES);
    log_only({ELOG_WARNING, elog_file_and_stderr}, "%s -- deliver_fax->%d", account, ret);
    return false;
}

// Adds a failed recipient to the message; for a single send also the reason, of which there is only one.
static void add_failure(bounded_text &message, const char *name, bool single)
{
    message.append(name);
    message.append(",");
    if (single)
        message.append(account);
}

// Delivers to the user called `name`; false after adding a failure to `message`.
static bool serve(const char *name, int fax, const char *path, bool single, bounded_text &message)
{
    const av_list_t *entry = User_list.users.get(name);
    if (!entry) {
        access_delivery(path, name, nullptr, "unknown-recipient", nullptr);
        add_failure(message, name, single);  // Kept: before `account` is written; it adds the previous text.
        snprintf(account, sizeof account, "deliver_fax_1_svc: '%s' not found in user list!\n", name);
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "deliver_fax_1_svc: '%s' not found in user list!\n", name);
        return false;
    }
    if (deliver_to(entry, name, fax, path))
        return true;
    const char *human_name = av_getv(entry, "human_name");
    add_failure(message, human_name ? human_name : name, single);
    return false;
}

// Adds the failure that the fax could not be opened for the recipient called `name`, for the reason in errno.
static void refuse_delivery(const char *name, const char *path, bool single, bounded_text &message)
{
    const char *reason = errno == ESTALE ? "it has changed" : strerror(errno);
    snprintf(account, sizeof account, "Fax routing failure: Can't read the fax: %s.\n", reason);
    add_failure(message, name, single);
    log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                  "deliver_fax_1_svc: Can't read \"%s\": %s: not delivered to '%s'\n", path, reason, name);
}

// Kept: a single send's message ends with the reason twice, whole and as its first line. Clients show it so.
static void finish_message(bounded_text &message, bool single)
{
    message.drop_last(',');
    if (!single)
        return;
    account[strcspn(account, "\n")] = '\0';
    message.append(account);
}

// Delivers the fax to all names, opened anew for each while it is the one that was listed: a delivery may
// take long. What has been delivered stays delivered if another name fails.
static in_res_t *deliver(const send_t &send, const user_node_t &node, faxid_t faxid, const char *path,
                         in_res_t &result)
{
    char **names = nullptr;
    const int count = split(send.names, ',', &names);
    if (count < 0) {
        const int error = errno;
        trprintf("Trayd: Can't split '%s'.\n", send.names);
        return error_reply(result, IE_SYSTEM, error, "Trayd: Can't make a list from '%s'", send.names);
    }
    const std::unique_ptr<char *, deleter<std::free>> names_owner(names);

    account[0] = '\0';  // discards the text of an earlier request
    bounded_text message(buf, sizeof buf);
    message.append(send.message);
    bool failed = false;
    // One note for a whole group, since each costs a write to the disk.
    note_begin();
    for (int i = 0; i < count; i++) {  // one failure does not stop the others
        const unique_fd fax = open_listed(node.index, faxid, path);
        if (!fax)
            refuse_delivery(names[i], path, send.single, message);
        failed |= !fax || !serve(names[i], fax.get(), path, send.single, message);
    }
    note_end();
    if (!failed)
        return reply(result, RES_DELIVER);
    finish_message(message, send.single);
    return error_reply(result, err_t{send.code, 0, buf});
}

// What the checks have found, for the delivery that follows. The pointers are good until the next request.
static struct {
    const user_node_t *inbox;
    char handle[64];  // of the inbox
    faxid_t id;
    char path[MAXPATHLEN];
    const av_list_t *recipient;
} found;

// Null if the delivery may begin, else the reply to send at once.
static in_res_t *check_request(client_deliver_req_t *request)
{
    static in_res_t result;
    const char *inbox = request->inbox ? request->inbox : "";  // "" is no inbox's handle
    trprintf("deliver_fax_1_svc request from inbox \"%s\" to \"%s\" by DF \"%s\".\n", shown(request->inbox),
             shown(request->recipients), shown(name_of(request->pw)));
    if (Regd_challenged) {
        trprintf("deliver_fax_1_svc requires faxregd.\n");
        return reply(result, RES_DELIVER);  // Kept: old clients read this as success.
    }
    if (!refresh_lists(result)) {
        trprintf("deliver_fax_1_svc: update_lists failed.\n");
        return &result;
    }
    if (!check_caller(request->pw, result) || !check_forwards_for(*request, inbox, result))
        return &result;
    found.inbox = load_incoming(inbox, result);
    if (!found.inbox || !find_fax(*found.inbox, request->faxid, found.path, result))
        return &result;
    snprintf(found.handle, sizeof found.handle, "%s", inbox);
    found.id = request->faxid;
    found.recipient = find_recipient(request->recipients, result);
    return found.recipient ? nullptr : &result;
}

// Delivers as the last check_request() has found.
static in_res_t *carry_out(client_deliver_req_t *request)
{
    static in_res_t result;
    return deliver(choose_send(found.recipient, request->recipients), *found.inbox, found.id, found.path,
                   result);
}

// The delivery may have met another file than the one that was listed: the next scan lists it.
static void look_at_fax_again()
{
    const user_node_t *node = find_node(incoming, found.handle);
    if (node && node->index && get_file_node(node->index, found.id))
        is_there_as_listed(node->index, found.id, found.path);
}

in_res_t *deliver_fax_1_svc(client_deliver_req_t *request, svc_req *rpc) noexcept
{
    return delivery_take({check_request, carry_out, look_at_fax_again}, request, rpc->rq_xprt);
}

}  // namespace faxtray
