// Decides what a message contains and what form it takes. Notices and plain messages are written here;
// mime_mail and sun_mail build the other two forms.
#include "deliver/mail.h"

#include <sys/param.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "config/attributes.h"
#include "deliver/convert.h"
#include "deliver/mail_agent.h"
#include "deliver/mail_encoding.h"
#include "deliver/mail_target.h"
#include "deliver/mime_mail.h"
#include "deliver/sun_mail.h"
#include "disk/scratch_file.h"
#include "faxfile/fax_header.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static constexpr char default_fax_subject[] = "Incoming Fax";
static constexpr char default_fax_text[] = "The attached fax was routed to you by the Ondrix Server\n";
static constexpr char default_notice_subject[] = "Mail from Ondrix Server";

static constexpr char mime_fax[] = "application/x-ondrix";
static constexpr char mime_tiff[] = "application/x-ondrix-tiff";
static constexpr char sun_fax[] = "Corvane-Ondrix";
static constexpr char sun_tiff[] = "TIFF";

static constexpr conversion_t by_mail = {"mail_fax_image", ELOG_FILE, true};

static const char *or_default(const char *text, const char *otherwise)
{
    return is_empty(text) ? otherwise : text;
}

// Ends a function that ran out of memory. No exception may leave it: the RPC library below is C.
static int no_memory(const char *function)
{
    return log_and_trace({ELOG_ERROR, ELOG_FILE}, "%s: %s\n", function, strerror(ENOMEM));
}

// Notices

static void trace_notice(const char *user, const char *subject, const char *message)
{
    if (!user)
        trprintf("mail(): null user\n");
    if (!subject)
        trprintf("mail(): null subject\n");
    if (!message)
        trprintf("mail(): null mess\n");
    if (user && subject && message)
        trprintf("mail() 'user=%s' subject='%s' mess='%s'\n", user, subject, message);
}

// The entry for an agent that could not be run, or took too long.
static int fail_notice(const mail_agent &agent)
{
    return log_and_trace({ELOG_ERROR, ELOG_FILE}, "mail: popen(\"%s\") failed: %s\n", agent.command(),
                         strerror(agent.error()));
}

int mail(const char *user, const char *subject, const char *message)
try {
    trace_notice(user, subject, message);
    if (is_empty(message))
        return log_and_trace({ELOG_NOTICE, ELOG_FILE}, "mail: Null mail message\n");
    const char *found = get_mail_address(user);
    if (!found && is_empty(user))
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail: Null user address\n");
    if (!found)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail: Bad user address [%s]\n", user);
    // A copy of the static buffer: an entry logged below may send a notice, to another address.
    const std::string address = found;

    // No "To:": the recipient may be a list or an alias, and is named to the agent alone.
    const std::string header = "From: " + header_value(mail_get_mail_from()) +
                               "\nSubject: " + header_value(or_default(subject, default_notice_subject)) +
                               "\n";
    mail_agent agent(mail_kind::notice, "mail", address.c_str());
    if (!agent.stream())
        return fail_notice(agent);
    trprintf("mail(): header...\n");
    trprintf("%s", header.c_str());
    trprintf("mail(): mess...\n");
    trprintf("'%s'\n", message);
    fprintf(agent.stream(), "%s\n%s\n", header.c_str(), message);
    return agent.finish() ? 1 : fail_notice(agent);
} catch (const std::bad_alloc &) {
    return no_memory("mail");
}

// Faxes

// Write the fax between two lines that say where to cut. False if it cannot be read to its end.
static bool write_base64(FILE *fax, FILE *out)
{
    fprintf(out, "\n------------------snip------------------ %s\n", "base64");
    if (!encode_base64(fax, out))
        return false;
    fprintf(out, "\n------------------snip------------------ %s\n", "base64");
    return true;
}

static bool write_uuencode(FILE *fax, const char *name, FILE *out)
{
    fprintf(out, "\n------------------snip------------------ %s\n", "uuencode");
    fprintf(out, "begin %o %s\n", 0444U, name);
    if (!encode_uuencode(fax, out))
        return false;
    fprintf(out, "end\n\n------------------snip------------------ %s\n", "uuencode");
    return true;
}

static int fail_plain(const char *address, const mail_agent &agent)
{
    return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't send mail to [%s]: %s\n", address,
                         strerror(agent.error()));
}

// The form for recipients without a mail program that knows attachments: the encoded fax as part of the text.
// Kept: the agent gets `address` as the recipient's entry has it, scheme and all.
static int mail_plain(const char *address, const char *subject, const char *text, const char *path,
                      int encoding)
{
    file_ptr fax(fopen(path, "re"));
    if (!fax)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't open fax file [%s]: %s\n",
                             path, strerror(errno));
    // The sender comes before the agent: asking the registry for it may take as long as a time-out.
    const std::string sender = header_value(mail_get_mail_from());
    mail_agent agent(mail_kind::fax, "mail_fax_image", address);
    FILE *out = agent.stream();
    if (!out)
        return fail_plain(address, agent);
    fprintf(out, "To:   %s\nFrom: %s\nSubject: %s\n\n", header_value(address).c_str(), sender.c_str(),
            header_value(subject).c_str());
    fputs(text, out);
    // If the fax cannot be read to its end the message is sent as far as it goes, without its last line: what
    // has been written to the agent cannot be called back. The result still says that it failed.
    const bool encoded = encoding == IV_BODY_ENCODING_BASE64
                             ? write_base64(fax.get(), out)
                             : write_uuencode(fax.get(), last_component(path), out);
    if (!agent.finish())
        return fail_plain(address, agent);
    return encoded ? 1 : -1;
}

int mail_fax_image(const char *address, const char *subject, const char *text, const char *fax_path,
                   const char *method, const char *encoding, const char *format, void (*keepalive)())
try {
    const char *found = get_mail_address(address);
    if (!found)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Bad user address [%s]\n",
                             shown(address));
    const std::string resolved = found;                           // a copy, as in mail()
    trprintf("mail_fax_image():  rfc_822_addr: '%s'\n ", found);  // Kept: the blank at its end
    if (!is_corvane_fax(fax_path))
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Bad fax file [%s]\n",
                             shown(fax_path));
    subject = or_default(subject, default_fax_subject);
    text = or_default(text, default_fax_text);

    // What the fax is converted to is removed once it has been mailed; the fax itself is the caller's.
    char path[MAXPATHLEN];
    snprintf(path, sizeof path, "%s", fax_path);  // fits: it has just been opened
    const int format_handle = as_get_value_handle(AS_DELIVERY_FILE_FORMAT, format);
    if (!convert_fax(path, format_handle, by_mail, keepalive))
        return -1;
    const scratch_file converted(strcmp(path, fax_path) != 0 ? path : "");
    if (keepalive)
        keepalive();

    const bool tiff = format_handle == IV_FILE_FORMAT_TIFF_F;
    switch (as_get_value_handle(AS_DELIVERY_METHOD, method)) {
    case IV_DELIVERY_METHOD_MIMEMAIL_ATTACH:
        return mime_mail_fax(resolved.c_str(), 0, subject, text, path, tiff ? mime_tiff : mime_fax);
    case IV_DELIVERY_METHOD_SUNMAIL_ATTACH:
        return sun_mail_fax(resolved.c_str(), subject, text, path, tiff ? sun_tiff : sun_fax);
    default:
        break;
    }
    const int result =
        mail_plain(address, subject, text, path, as_get_value_handle(AS_DELIVERY_BODY_ENCODING, encoding));
    if (result > 0 && keepalive)
        keepalive();
    return result;
} catch (const std::bad_alloc &) {
    return no_memory("mail_fax_image");
}

int mail_fax(const char *url, const char *subject, const char *text, const char *fax_path)
try {
    const char *found = get_mail_address(url);
    if (!found && is_empty(url)) {
        trprintf("mail_fax: Null user address\n");
        return -1;
    }
    if (!found) {
        trprintf("mail_fax: Bad user address [%s]\n", url);
        return -1;
    }
    const std::string address = found;
    if (!is_corvane_fax(fax_path)) {
        trprintf("mail_fax: Bad fax file [%s]\n", shown(fax_path));
        return -1;
    }
    subject = or_default(subject, default_fax_subject);
    text = or_default(text, default_fax_text);

    // The forms without a conversion come first: they leave the fax as it is.
    if (is_mailto(url))
        return mime_mail_fax(address.c_str(), 0, subject, text, fax_path, mime_fax);
    if (is_mailtosun(url))
        return sun_mail_fax(address.c_str(), subject, text, fax_path, sun_fax);
    if (!is_mailtiffto(url) && !is_mailtifftosun(url)) {
        trprintf("mail_fax: Bad user address (bad email URL) [%s]\n", url);
        return -1;
    }
    if (fax_to_tiff(fax_path) < 0) {
        trprintf("mail_fax: Can't filter fax file: [%s]\n", fax_path);
        return -1;
    }
    return is_mailtiffto(url) ? mime_mail_fax(address.c_str(), 0, subject, text, fax_path, mime_tiff)
                              : sun_mail_fax(address.c_str(), subject, text, fax_path, sun_tiff);
} catch (const std::bad_alloc &) {
    return no_memory("mail_fax");
}

}  // namespace faxtray
