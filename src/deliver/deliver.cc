// One fax, one recipient. Whatever fails, the fax itself is not touched, and the caller gets a text to pass
// on.
#include "deliver/deliver.h"

#include <sys/param.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "codec/change_format.h"
#include "config/attributes.h"
#include "config/user_list_file.h"
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
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static constexpr size_t text_size = 4096;  // of the caller's buffers
static constexpr size_t command_size = 12288;

static char sender_station[8] = "UNKNOWN";  // for the subjects of mails; nothing changes it

// Entries and names

static const char *value_of(const av_list_t *record, int attr)
{
    return av_getv(record, as_get_attr(attr));
}

static const char *user_of(const av_list_t *record)
{
    return record->key ? record->key : "";
}

static bool wants_dos_names(const av_list_t *record)
{
    return as_get_value_handle_av(AS_DELIVERY_NAMING, record) == IV_DELIVERY_NAMING_8_3;
}

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

// What follows the first ":" of a method, as it stands; null without one.
static const char *command_text(const char *method)
{
    const char *colon = strchr(method, ':');
    return colon ? colon + 1 : nullptr;
}

static void filter_file_name(char *path)
{
    char filtered[MAXPATHLEN];
    char *name = path + (last_component(path) - path);
    posix_file_name_filter(name, filtered);
    memcpy(name, filtered, strlen(filtered) + 1);  // no longer than it was
}

int change_file_name(const av_list_t *record, char *path)
{
    if (!record || is_empty(path))
        return DELIVER_BAD_ARGUMENT;
    if (!wants_dos_names(record))
        filter_file_name(path);
    else if (!build_unique_DOS_name(path, ".fax"))
        path[0] = '\0';
    return DELIVERED;
}

// Format

static bool to_tiff(char *path, const char *tiff)
{
    trprintf("format_fax_file:  converting %s to tiff class f\n", path);
    return fax_to_tiff(path) >= 0 && move_new(path, tiff);
}

static bool to_pdf(char *path, const char *pdf)
{
    return fax_to_pdf(path, pdf);
}

// Has the file converted to one with that extension, whose name `path` then gets.
static int convert_to(const char *ext, bool (*converter)(char *, const char *), char *path)
{
    std::string converted = converted_name(path, ext);
    if (converted.empty() || converted.size() >= MAXPATHLEN || !converter(path, converted.c_str())) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "format_fax_file: Can't filter fax file: [%s]\n",
                      path);
        return DELIVER_FAILED;
    }
    snprintf(path, MAXPATHLEN, "%s", converted.c_str());
    return DELIVERED;
}

// Kept: MH, whichever of the four was asked for; readers of delivered files count on it.
static int convert_to_mh(char *path, void (*keepalive)())
{
    trprintf("format_fax_file:  converting %s to MH compression\n", path);
    if (t4dec_change_format(path, 0, -1, keepalive))
        return DELIVERED;
    log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "format_fax_file: Can't change compression: [%s]\n",
                  path);
    return DELIVER_FAILED;
}

int format_fax_file(const av_list_t *record, char *path, void (*keepalive)())
{
    if (!record || is_empty(path))
        return DELIVER_BAD_ARGUMENT;
    switch (as_get_value_handle_av(AS_DELIVERY_FILE_FORMAT, record)) {
    case IV_FILE_FORMAT_G3:
    case IV_FILE_FORMAT_G3MH:
    case IV_FILE_FORMAT_G3MR:
    case IV_FILE_FORMAT_G4:
        return convert_to_mh(path, keepalive);
    case IV_FILE_FORMAT_TIFF_F:
        return convert_to(".tif", to_tiff, path);
    case IV_FILE_FORMAT_PDF:
        return convert_to(".pdf", to_pdf, path);
    default:
        return DELIVERED;
    }
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
    const char *name = last_component(path);
    if (strncmp(name, "ii_", 3) == 0)
        name++;  // Kept: one character, so ii_x arrives as i_x, which is enough to be listed.

    char destination[MAXPATHLEN];
    int n = snprintf(destination, sizeof destination, "%s/%s", inbox.get(), name);
    bool fits = n < static_cast<int>(sizeof destination);
    if (const char *ext = get_tmp_ext(destination); ext && fits)
        destination[ext - destination] = '\0';
    bool routed = fits && publish(path, destination, wants_dos_names(record));
    set_text(destination_out, destination);
    if (!routed)
        tr_puts("route_fax_file:  cv_move failed!\n");
    return routed ? DELIVERED : DELIVER_FAILED;
}

// To a command

// "COMMAND PATH ROOT" into `command`; false when it does not fit.
static bool make_command(char *command, const char *text, const char *path, const char *root)
{
    int n = snprintf(command, command_size, "%s %s %s", text, path, root);
    return n >= 0 && static_cast<size_t>(n) < command_size;
}

// A command need not read this.
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

    const char *root = value_of(record, AS_DELIVERY_DIR_ROOT);
    if (!root) {
        tr_puts("exec_deliver: Invalid destination. Passing \"\" to shell.\n");
        root = "";
    }
    set_text(destination_out, root);
    errno = E2BIG;
    const char *text = rm_leading_whitespace(copy.get());
    FILE *stream = make_command(command.get(), text, path, root) ? child_popen(command.get(), "w") : nullptr;
    if (!stream) {
        trprintf("exec_deliver: popen(\"%s\") error: %s\n", command.get(), strerror(errno));
        return DELIVER_FAILED;
    }
    write_record(stream, record);
    int status = child_pclose(stream);
    if (status < 0)
        trprintf("exec_deliver: pclose(\"%s\") warning: [%s] died before pclose() was executed. Possible "
                 "delivery failure.\n",
                 command.get(), text);
    trprintf("exec_deliver:  child exited with %d\n", WEXITSTATUS(status));
    // Kept: death by a signal counts as success, and so does a status that cannot be had; users of commands
    // that end themselves that way get no notice of failure.
    if ((status & 0x7f) != 0)
        return DELIVERED;
    return WEXITSTATUS(status) == 0 ? DELIVERED : DELIVER_COMMAND_FAILED;
}

// The whole

namespace {

struct delivery_t {
    const av_list_t *record;
    const char *fax_path;
    char *destination_out;
    void (*keepalive)();
    int did;
    bool problem;                // the fax is a problem fax
    char temporary[MAXPATHLEN];  // the copy worked on, "" until its name is chosen
    bool own_temporary;          // it is there, and ours to remove
    char message[text_size];
};

}  // namespace

// Writes the account of the delivery. Gives `result` back.
__attribute__((format(printf, 3, 4))) static int tell(delivery_t &d, int result, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vsnprintf(d.message, sizeof d.message, format, args);
    va_end(args);
    return result;
}

// Whether a file may be made there, under that name or the one that filtering makes of it.
static bool is_free(const char *path)
{
    char filtered[MAXPATHLEN];
    snprintf(filtered, sizeof filtered, "%s", path);
    filter_file_name(filtered);
    return !exists(path) && !exists(filtered);
}

// Chooses a name for the copy beside the fax: its own less ".fax", and a number.
static bool choose_temporary(delivery_t &d)
{
    // A name shorter than what is cut off loses all of itself, but not the directory.
    size_t length = strlen(d.fax_path), name = static_cast<size_t>(last_component(d.fax_path) - d.fax_path);
    int stem = static_cast<int>(std::max(length < 4 ? 0 : length - 4, name));
    // Kept: eight names, though a ninth may be free; a directory in which all are taken needs a look.
    for (int n = 0; n < 8; n++) {
        int size = snprintf(d.temporary, sizeof d.temporary, "%.*s%d_.fax", stem, d.fax_path, n);
        if (size < static_cast<int>(sizeof d.temporary) && is_free(d.temporary))
            return true;
    }
    d.temporary[0] = '\0';
    return false;
}

// The result of a delivery that went well.
static int delivered(const delivery_t &d)
{
    return d.problem ? DELIVERED_PROBLEM : DELIVERED;
}

static int fail_to_autoroute(delivery_t &d, int result)
{
    return tell(d, result, "Fax routing failure: Couldn't autoroute '%s'\nfor '%s'.\n", d.fax_path,
                user_of(d.record));
}

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

static int deliver_by_mail(delivery_t &d, const char *method)
{
    tr_puts("deliver_fax:  deliver via email\n");
    const char *user = user_of(d.record);
    const char *address = value_of(d.record, AS_EMAIL_ADDRESS);
    if (!address) {
        tr_puts("deliver_fax:  no email address found.\n");
        return tell(d, DELIVER_BAD_ARGUMENT,
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
        return tell(d, DELIVER_FAILED,
                    "Fax routing failure: Couldn't send fax as mail attachment to '%s'.\n%s\n", user,
                    d.fax_path);
    }
    return tell(d, delivered(d),
                d.problem ? "Incoming problem fax mailed as attachment to '%s'."
                          : "Incoming fax mailed as attachment to '%s'.",
                user);
}

static int deliver_by_command(delivery_t &d)
{
    const char *user = user_of(d.record);
    const char *command = command_text(value_of(d.record, AS_DELIVERY_METHOD));
    if (!command)
        command = "(NULL)";
    int result = exec_deliver(d.record, d.temporary, d.destination_out);
    if (result != DELIVERED) {
        trprintf("deliver_fax: exec_deliver failed, ret=%d\n", result);
        return tell(d, result, "Couldn't route fax using command '%s'\nfor %s to '%s'\n", command, d.fax_path,
                    user);
    }
    return tell(d, delivered(d),
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
        return tell(d, result, "Fax routing failure: Couldn't autoroute\n'%s' via inbox for '%s'.\n",
                    d.fax_path, user);
    }
    d.own_temporary = false;  // moved away; where the inbox is this directory it may bear that very name
    return tell(d, delivered(d),
                d.problem ? "Incoming problem fax has been routed to '%s' inbox.\n"
                          : "Incoming fax has been routed to '%s' inbox.\n",
                user);
}

static int deliver_copy(delivery_t &d, const char *method, const char *keyword)
{
    int handle = as_get_value_handle(AS_DELIVERY_METHOD, keyword);
    switch (handle) {
    case IV_DELIVERY_METHOD_EMAIL_BODY:
    case IV_DELIVERY_METHOD_MIMEMAIL_ATTACH:
    case IV_DELIVERY_METHOD_SUNMAIL_ATTACH:
        return deliver_by_mail(d, keyword);
    case IV_DELIVERY_METHOD_EXEC:
    case IV_DELIVERY_METHOD_FAXTRAY:
        break;
    default:
        log_and_trace({ELOG_WARNING, elog_file_and_stderr},
                      "deliver_fax:  unsupported delivery type %d, %s\n", handle, method);
        return tell(d, DELIVER_FAILED,
                    "Fax routing failure: Delivery type unknown [%s].\nCan't autoroute '%s' for '%s'.\n",
                    method, d.fax_path, user_of(d.record));
    }
    int result = format_fax_file(d.record, d.temporary, d.keepalive);
    if (result != DELIVERED) {
        trprintf("deliver_fax:  format_fax_file failed, ret=%d\n", result);
        return tell(d, result, "Fax routing failure: Couldn't change format of\n'%s' for '%s'.\n", d.fax_path,
                    user_of(d.record));
    }
    return handle == IV_DELIVERY_METHOD_EXEC ? deliver_by_command(d) : deliver_to_inbox(d);
}

// The keyword of a method: what stands before the first ":", those in front of all left out.
static char *cut_keyword(char *method)
{
    char *keyword = method + strspn(method, ":");
    keyword[strcspn(keyword, ":")] = '\0';
    rm_trailing_whitespace(keyword);
    return keyword;
}

static int deliver_to_recipient(delivery_t &d)
{
    const char *user = user_of(d.record);
    if (const av_node_t *group = as_get_av_node(AS_GROUP, d.record)) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  [%s] is a group [%s]!\n", user,
                      group->value ? group->value : "");
        return tell(d, DELIVER_BAD_ARGUMENT, "Fax routing failure: Bad or invalid recipient.\n");
    }
    const char *method = value_of(d.record, AS_DELIVERY_METHOD);
    if (is_empty(method)) {
        tr_puts("deliver_fax:  no delivery method, nop return\n");
        return tell(d, DELIVER_NO_METHOD,
                    "Fax routing failure: Couldn't determine a routing method for\n'%s', %s.\n", user,
                    d.fax_path);
    }

    if (!choose_temporary(d)) {
        tr_puts("deliver_fax: Couldn't get a usable temp name\n");
        return tell(d, DELIVER_FAILED, "Fax Routing failure: Couldn't autoroute '%s'\nfor '%s'\n", d.fax_path,
                    user);
    }
    change_file_name(d.record, d.temporary);
    trprintf("deliver_fax: copy \"%s\" to \"%s\"\n", d.fax_path, d.temporary);
    d.own_temporary = d.temporary[0] && copy_new(d.fax_path, d.temporary);
    if (!d.own_temporary) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  could not copy(%s, %s)\n",
                      d.fax_path, d.temporary);
        return fail_to_autoroute(d, DELIVER_FAILED);
    }

    c_string method_copy(strdup(method));
    if (!method_copy) {
        log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  could not strdup(%s): %s\n",
                      method, strerror(errno));
        return fail_to_autoroute(d, DELIVER_NO_MEMORY);
    }
    return deliver_copy(d, method, cut_keyword(method_copy.get()));
}

static int deliver_given(delivery_t &d)
{
    if (!d.record || is_empty(d.fax_path)) {
        log_and_trace(
            {ELOG_WARNING, elog_file_and_stderr}, "deliver_fax:  Invalid argument[avl=0x%x,fname=\"%s\"]\n",
            static_cast<unsigned>(reinterpret_cast<uintptr_t>(d.record)), d.fax_path ? d.fax_path : "(NULL)");
        return tell(d, DELIVER_BAD_ARGUMENT, "Fax routing failure: Bad or invalid argument for delivery.\n");
    }
    d.problem = last_component(d.fax_path)[0] == 'p';

    // Of a copy, since a keep-alive function may have the lists read anew.
    av_list_ptr record(copy_av_list(d.record));
    if (!record)
        return fail_to_autoroute(d, DELIVER_NO_MEMORY);
    d.record = record.get();

    note_begin();
    int result = deliver_to_recipient(d);
    if (d.own_temporary)
        unlink(d.temporary);
    note_end();
    return result;
}

int deliver_fax(const av_list_t *record, const char *fax_path, char *message_out, char *destination_out,
                void (*keepalive)(), int did)
{
    if (keepalive)
        keepalive();
    tr_puts("deliver_fax...\n");
    set_text(destination_out, "");

    delivery_t d = {};
    d.record = record;
    d.fax_path = fax_path;
    d.destination_out = destination_out;
    d.keepalive = keepalive;
    d.did = did;
    int result = deliver_given(d);

    if (destination_out && !*destination_out)
        set_text(destination_out, d.temporary);
    set_text(message_out, d.message);
    return result;
}

}  // namespace faxtray
