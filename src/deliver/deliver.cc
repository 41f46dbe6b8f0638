// One fax, one recipient: copy the fax, then change, move, mail or pipe the copy. Whatever fails, the fax
// itself is not touched, and the caller gets a text to pass on.
#include "deliver/deliver.h"

#include <sys/param.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>
#include <string>

#include "codec/change_format.h"
#include "config/attributes.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "deliver/convert.h"
#include "deliver/mail.h"
#include "disk/file_names.h"
#include "disk/files.h"
#include "disk/publish.h"
#include "disk/work_note.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/child_process.h"
#include "util/paths.h"
#include "util/shell_word.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static constexpr size_t text_size = 4096;  // of the caller's buffers
static constexpr size_t command_size = 12288;

// The sender in the subjects of mails. Kept: nothing sets it, so every subject says "from UNKNOWN"; mail
// filters go by that.
static char sender_station[8] = "UNKNOWN";

// Entries and names

static const char *value_of(const av_list_t *record, int attr)
{
    return av_getv(record, as_get_attr(attr));
}

static const char *user_of(const av_list_t *record)
{
    return record->key ? record->key : "";
}

// Whether the recipient's files get names of eight and three characters.
static bool wants_dos_names(const av_list_t *record)
{
    return as_get_value_handle_av(AS_DELIVERY_NAMING, record) == IV_DELIVERY_NAMING_8_3;
}

// Whether there is anything of that name; a dangling link counts, since creating the file would write through
// it.
static bool exists(const char *path)
{
    struct stat st;
    return lstat(path, &st) == 0;
}

static void set_text(char *out, const char *text)
{
    if (out)
        snprintf(out, text_size, "%s", text);
}

// Filters the last component of `path`, a buffer of MAXPATHLEN bytes, in place. No listing shows names that
// begin with a dot: they get a "_" in front. False if that does not fit.
static bool filter_file_name(char *path)
{
    char filtered[MAXPATHLEN];
    char *name = path + (last_component(path) - path);
    const int room = MAXPATHLEN - static_cast<int>(name - path);
    posix_file_name_filter(name, filtered);
    return snprintf(name, static_cast<size_t>(room), "%s%s", *filtered == '.' ? "_" : "", filtered) < room;
}

int change_file_name(const av_list_t *record, char *path)
{
    if (!record || is_empty(path))
        return DELIVER_BAD_ARGUMENT;
    if (wants_dos_names(record) ? !build_unique_DOS_name(path, ".fax") : !filter_file_name(path))
        path[0] = '\0';
    return DELIVERED;
}

// Format

int format_fax_file(const av_list_t *record, char *path, void (*keepalive)())
{
    static constexpr conversion_t by = {"format_fax_file", elog_file_and_stderr, false};
    if (!record || is_empty(path))
        return DELIVER_BAD_ARGUMENT;
    const int format = as_get_value_handle_av(AS_DELIVERY_FILE_FORMAT, record);
    return convert_fax(path, format, by, keepalive) ? DELIVERED : DELIVER_FAILED;
}

// Into an inbox

int route_fax_file(const av_list_t *record, const char *path, char *destination_out)
{
    c_string inbox(record && !is_empty(path) ? ui_inbox_path(record) : nullptr);
    if (!inbox) {
        tr_puts("route_fax_file: Invalid arguments\n");
        return DELIVER_BAD_ARGUMENT;
    }
    trprintf("route_fax_file:  moving %s to %s for '%s'\n", path, inbox.get(), user_of(record));
    // A scan skips names that begin with "ii_". Kept: one character is dropped, so ii_x arrives as i_x, which
    // is enough for it to be listed.
    const char *name = last_component(path);
    if (strncmp(name, "ii_", 3) == 0)
        name++;

    char destination[MAXPATHLEN];
    const int n = snprintf(destination, sizeof destination, "%s/%s", inbox.get(), name);
    const bool fits = n < static_cast<int>(sizeof destination);
    if (const char *ext = get_tmp_ext(destination); ext && fits)
        destination[ext - destination] = '\0';
    // publish() replaces no other fax: where the name is taken, `destination` gets the name used instead.
    const bool routed = fits && publish(path, destination, wants_dos_names(record));
    set_text(destination_out, destination);
    if (!routed)
        tr_puts("route_fax_file:  cv_move failed!\n");
    return routed ? DELIVERED : DELIVER_FAILED;
}

// To a command

// Writes "COMMAND PATH ROOT" to `command`; false if it does not fit. A command that was cut would run, and do
// something else. The path is one word; the command and the root are the administrator's and may be shell
// text.
static bool make_command(char *command, const char *text, const char *path, const char *root)
try {
    int n = snprintf(command, command_size, "%s %s %s", text, shell_word(path).c_str(), root);
    return n >= 0 && static_cast<size_t>(n) < command_size;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
}

// The entry as USER_LIST.info has it. Failed writes are no failure: a command need not read its input.
static void write_record(FILE *out, const av_list_t *record)
{
    fprintf(out, "[%s]\n", user_of(record));
    for (const av_node_t *node = record->nodes; node; node = node->next)
        fprintf(out, "%s=%s\n", node->attr, node->value ? node->value : "");
}

int exec_deliver(const av_list_t *record, const char *path, char *destination_out)
{
    const char *method = record && !is_empty(path) ? value_of(record, AS_DELIVERY_METHOD) : nullptr;
    const char *given = method ? command_text(method) : nullptr;
    if (!given) {
        trprintf("exec_deliver:  Bad argument to delivery_method=%s\n", method ? method : "");
        return DELIVER_BAD_ARGUMENT;
    }
    c_string copy(strdup(given)), command(static_cast<char *>(calloc(command_size, 1)));
    if (!copy || !command) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "exec_deliver:  Memory allocation error, \"%s\"\n", strerror(errno));
        return DELIVER_NO_MEMORY;
    }

    // The caller learns the destination even if the command then fails.
    const char *root = value_of(record, AS_DELIVERY_DIR_ROOT);
    if (!root) {
        tr_puts("exec_deliver: Invalid destination. Passing \"\" to shell.\n");
        root = "";
    }
    set_text(destination_out, root);
    const char *text = rm_leading_whitespace(copy.get());
    errno = E2BIG;  // the reason if the command does not fit
    FILE *stream = make_command(command.get(), text, path, root) ? child_popen(command.get(), "w") : nullptr;
    if (!stream) {
        trprintf("exec_deliver: popen(\"%s\") error: %s\n", command.get(), strerror(errno));
        return DELIVER_FAILED;
    }
    write_record(stream, record);

    const int status = child_pclose(stream);
    const bool overdue = status < 0 && errno == ETIMEDOUT;
    if (status < 0)
        trprintf("exec_deliver: pclose(\"%s\") warning: [%s] died before pclose() was executed. Possible "
                 "delivery failure.\n",
                 command.get(), text);
    trprintf("exec_deliver:  child exited with %d\n", WEXITSTATUS(status));
    if (overdue)
        return DELIVER_COMMAND_FAILED;
    // Kept: death by a signal counts as success, and so does a status that was lost: users whose command ends
    // itself that way get no notice of failure.
    if ((status & 0x7f) != 0)
        return DELIVERED;
    return WEXITSTATUS(status) == 0 ? DELIVERED : DELIVER_COMMAND_FAILED;
}

// The whole

namespace {

struct delivery_t {
    const av_list_t *record;
    const char *fax_path;
    int fax;  // open there, or -1
    char *destination_out;
    void (*keepalive)();
    int did;
    int method;                  // value handle of delivery_method
    bool problem;                // the fax is a problem fax
    char temporary[MAXPATHLEN];  // the copy worked on, "" until its name is chosen
    bool own_temporary;          // the copy exists, and we are to remove it
    char message[text_size];
};

}  // namespace

// Ends a delivery: writes the message for the caller and returns `result`.
__attribute__((format(printf, 3, 4))) static int conclude(delivery_t &d, int result, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(d.message, sizeof d.message, format, args);
    va_end(args);
    return result;
}

// The result of a successful delivery.
static int delivered(const delivery_t &d)
{
    return d.problem ? DELIVERED_PROBLEM : DELIVERED;
}

// The message of failures on our side, before any method was tried.
static int fail_to_autoroute(delivery_t &d, int result)
{
    return conclude(d, result, "Fax routing failure: Couldn't autoroute '%s'\nfor '%s'.\n", d.fax_path,
                    user_of(d.record));
}

static bool is_mail(int method)
{
    return method == IV_DELIVERY_METHOD_EMAIL_BODY || method == IV_DELIVERY_METHOD_MIMEMAIL_ATTACH ||
           method == IV_DELIVERY_METHOD_SUNMAIL_ATTACH;
}

// Whether a file may be created under that name and under what filtering makes of it: which of the two is
// used, delivery_naming decides later.
static bool is_free(const char *path)
{
    char filtered[MAXPATHLEN];
    snprintf(filtered, sizeof filtered, "%s", path);
    return !exists(path) && filter_file_name(filtered) && !exists(filtered);
}

// Whether the name of what the copy will be converted to is free too. If another process takes it before that
// is made, convert_fax finds another.
static bool is_result_free(const delivery_t &d)
try {
    const int format = as_get_value_handle_av(AS_DELIVERY_FILE_FORMAT, d.record);
    const std::string result = converted_fax(d.temporary, format, is_mail(d.method));
    return result.empty() || !exists(result.c_str());
} catch (const std::bad_alloc &) {
    return true;  // as if it had been taken since
}

// Makes the copy beside the fax, under the fax's name less its last four characters (".fax") and the first
// number with which all names are free that this delivery needs. False with a message for the caller.
static bool make_copy(delivery_t &d)
{
    // A name shorter than four characters is cut off whole, but its directory is not touched.
    size_t length = strlen(d.fax_path), name = static_cast<size_t>(last_component(d.fax_path) - d.fax_path);
    int stem = static_cast<int>(std::max(length < 4 ? 0 : length - 4, name));
    // Kept: eight names, though a ninth may be free; a directory in which all are taken needs a look.
    for (int n = 0; n < 8; n++) {
        int size = snprintf(d.temporary, sizeof d.temporary, "%.*s%d_.fax", stem, d.fax_path, n);
        if (size >= static_cast<int>(sizeof d.temporary) || !is_free(d.temporary))
            continue;
        change_file_name(d.record, d.temporary);
        if (!is_result_free(d))
            continue;
        trprintf("deliver_fax: copy \"%s\" to \"%s\"\n", d.fax_path, d.temporary);
        d.own_temporary = d.temporary[0] && (d.fax < 0 ? copy_new(d.fax_path, d.temporary)
                                                       : copy_new_open(d.fax, d.fax_path, d.temporary));
        if (d.own_temporary)
            return true;
        if (d.temporary[0] && errno == EEXIST)  // taken by another process since
            continue;
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  could not copy(%s, %s)\n",
                      d.fax_path, d.temporary);
        fail_to_autoroute(d, DELIVER_FAILED);
        return false;
    }
    d.temporary[0] = '\0';
    tr_puts("deliver_fax: Couldn't get a usable temp name\n");
    conclude(d, DELIVER_FAILED, "Fax Routing failure: Couldn't autoroute '%s'\nfor '%s'\n", d.fax_path,
             user_of(d.record));
    return false;
}

// The subject of a fax sent by mail. The six texts are written out, so that each can be searched for.
static void make_subject(const delivery_t &d, char *out, size_t size)
{
    const char *from = sender_station;
    if (d.did && *from)
        snprintf(out, size,
                 d.problem ? "Incoming problem fax from %s, DID/DNIS=%d"
                           : "Incoming fax from %s, DID/DNIS=%d",
                 from, d.did);
    else if (d.did)
        snprintf(out, size, d.problem ? "Incoming problem fax, DID/DNIS=%d" : "Incoming fax, DID/DNIS=%d",
                 d.did);
    else if (*from)
        snprintf(out, size, d.problem ? "Incoming problem fax from %s" : "Incoming fax from %s", from);
    else
        snprintf(out, size, d.problem ? "Incoming problem fax" : "Incoming fax");
}

// Mails the copy. An entry without an address is the administrator's mistake, and is reported as one.
static int deliver_by_mail(delivery_t &d, const char *method)
{
    tr_puts("deliver_fax:  deliver via email\n");
    const char *user = user_of(d.record);
    const char *address = value_of(d.record, AS_EMAIL_ADDRESS);
    if (!address) {
        tr_puts("deliver_fax:  no email address found.\n");
        return conclude(d, DELIVER_BAD_ARGUMENT,
                        "Fax routing failure: Couldn't determine email address for '%s'.\n%s\n", user,
                        d.fax_path);
    }
    char subject[300];
    make_subject(d, subject, sizeof subject);
    const char *text =
        d.problem ? "The attached problem fax was routed to you by the Ondrix Server" : nullptr;
    if (mail_fax_image(address, subject, text, d.temporary, method,
                       value_of(d.record, AS_DELIVERY_BODY_ENCODING),
                       value_of(d.record, AS_DELIVERY_FILE_FORMAT), d.keepalive) < 0) {
        tr_puts("deliver_fax:  email delivery failed\n");
        return conclude(d, DELIVER_FAILED,
                        "Fax routing failure: Couldn't send fax as mail attachment to '%s'.\n%s\n", user,
                        d.fax_path);
    }
    return conclude(d, delivered(d),
                    d.problem ? "Incoming problem fax mailed as attachment to '%s'."
                              : "Incoming fax mailed as attachment to '%s'.",
                    user);
}

// Converts nothing itself: the copy is in the recipient's format by now.
static int deliver_by_command(delivery_t &d)
{
    const char *user = user_of(d.record);
    const char *command = command_text(value_of(d.record, AS_DELIVERY_METHOD));
    if (!command)
        command = "(NULL)";
    int result = exec_deliver(d.record, d.temporary, d.destination_out);
    if (result != DELIVERED) {
        trprintf("deliver_fax: exec_deliver failed, ret=%d\n", result);
        return conclude(d, result, "Couldn't route fax using command '%s'\nfor %s to '%s'\n", command,
                        d.fax_path, user);
    }
    return conclude(d, delivered(d),
                    d.problem ? "Incoming problem fax has been routed via \"%s\" program to '%s'.\n"
                              : "Incoming fax has been routed via \"%s\" program to '%s'.\n",
                    command, user);
}

static int deliver_to_inbox(delivery_t &d)
{
    const char *user = user_of(d.record);
    int result = route_fax_file(d.record, d.temporary, d.destination_out);
    if (result != DELIVERED) {
        trprintf("deliver_fax: route_fax_file failed, ret=%d\n", result);
        return conclude(d, result, "Fax routing failure: Couldn't autoroute\n'%s' via inbox for '%s'.\n",
                        d.fax_path, user);
    }
    // The copy has been moved away. Where the inbox is the fax's own directory it may even be the delivered
    // fax.
    d.own_temporary = false;
    return conclude(d, delivered(d),
                    d.problem ? "Incoming problem fax has been routed to '%s' inbox.\n"
                              : "Incoming fax has been routed to '%s' inbox.\n",
                    user);
}

// Delivers the copy by the method of that keyword; `method` is the whole setting, for the message.
static int deliver_copy(delivery_t &d, const char *method, const char *keyword)
{
    if (is_mail(d.method))
        return deliver_by_mail(d, keyword);  // converts by itself
    if (d.method != IV_DELIVERY_METHOD_EXEC && d.method != IV_DELIVERY_METHOD_FAXTRAY) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "deliver_fax:  unsupported delivery type %d, %s\n", d.method, method);
        return conclude(d, DELIVER_FAILED,
                        "Fax routing failure: Delivery type unknown [%s].\nCan't autoroute '%s' for '%s'.\n",
                        method, d.fax_path, user_of(d.record));
    }
    const int result = format_fax_file(d.record, d.temporary, d.keepalive);
    if (result != DELIVERED) {
        trprintf("deliver_fax:  format_fax_file failed, ret=%d\n", result);
        return conclude(d, result, "Fax routing failure: Couldn't change format of\n'%s' for '%s'.\n",
                        d.fax_path, user_of(d.record));
    }
    return d.method == IV_DELIVERY_METHOD_EXEC ? deliver_by_command(d) : deliver_to_inbox(d);
}

// Checks that the recipient can be delivered to, makes the copy and delivers it.
static int deliver_to_recipient(delivery_t &d)
{
    const char *user = user_of(d.record);
    // The caller delivers to the members of a group, never to the group itself.
    if (const av_node_t *group = as_get_av_node(AS_GROUP, d.record)) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  [%s] is a group [%s]!\n", user,
                      group->value ? group->value : "");
        return conclude(d, DELIVER_BAD_ARGUMENT, "Fax routing failure: Bad or invalid recipient.\n");
    }
    const char *method = value_of(d.record, AS_DELIVERY_METHOD);
    if (is_empty(method)) {
        tr_puts("deliver_fax:  no delivery method, nop return\n");
        return conclude(d, DELIVER_NO_METHOD,
                        "Fax routing failure: Couldn't determine a routing method for\n'%s', %s.\n", user,
                        d.fax_path);
    }

    // The keyword is cut out of a copy: exec_deliver needs the setting whole.
    c_string method_copy(strdup(method));
    if (!method_copy) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  could not strdup(%s): %s\n",
                      method, strerror(errno));
        return fail_to_autoroute(d, DELIVER_NO_MEMORY);
    }
    const char *keyword = cut_keyword(method_copy.get());
    d.method = as_get_value_handle(AS_DELIVERY_METHOD, keyword);
    // From here on only the copy is touched.
    return make_copy(d) ? deliver_copy(d, method, keyword) : DELIVER_FAILED;
}

static int deliver_given(delivery_t &d)
{
    if (!d.record || is_empty(d.fax_path)) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "deliver_fax:  Invalid argument[avl=0x%x,fname=\"%s\"]\n", pointer_bits(d.record),
                      d.fax_path ? d.fax_path : "(NULL)");
        return conclude(d, DELIVER_BAD_ARGUMENT,
                        "Fax routing failure: Bad or invalid argument for delivery.\n");
    }
    d.problem = last_component(d.fax_path)[0] == 'p';

    // A copy, because a keep-alive function may reload the lists that the record belongs to.
    av_list_ptr record(copy_av_list(d.record));
    if (!record)
        return fail_to_autoroute(d, DELIVER_NO_MEMORY);
    d.record = record.get();

    // The note outlives the copy: a crash at any moment leaves nothing that the next start would not remove.
    note_begin();
    const int result = deliver_to_recipient(d);
    if (d.own_temporary)
        note_remove(d.temporary);
    note_end();
    return result;
}

// Carries out what `d` asks for; `message_out` as in deliver_fax.
static int deliver_and_tell(delivery_t &d, char *message_out)
{
    if (d.keepalive)
        d.keepalive();
    tr_puts("deliver_fax...\n");
    set_text(d.destination_out, "");
    const int result = deliver_given(d);

    // Only routing and commands name a destination; otherwise the copy's name says how far the delivery got.
    if (d.destination_out && !*d.destination_out)
        set_text(d.destination_out, d.temporary);
    set_text(message_out, d.message);
    return result;
}

int deliver_fax(const av_list_t *record, const char *fax_path, char *message_out, char *destination_out,
                void (*keepalive)(), int did)
{
    delivery_t d = {};
    d.record = record;
    d.fax_path = fax_path;
    d.fax = -1;
    d.destination_out = destination_out;
    d.keepalive = keepalive;
    d.did = did;
    return deliver_and_tell(d, message_out);
}

int deliver_open_fax(int fd, const av_list_t *record, const char *fax_path, char *message_out,
                     char *destination_out)
{
    delivery_t d = {};
    d.record = record;
    d.fax_path = fax_path;
    d.fax = fd;
    d.destination_out = destination_out;
    return deliver_and_tell(d, message_out);
}

}  // namespace faxtray
