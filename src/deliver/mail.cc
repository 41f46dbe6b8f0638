// Decides what a message holds and in which form it goes; mime_mail and sun_mail build those two.
#include "deliver/mail.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "codec/change_format.h"
#include "config/attributes.h"
#include "deliver/convert.h"
#include "deliver/mail_agent.h"
#include "deliver/mail_encoding.h"
#include "deliver/mail_target.h"
#include "deliver/mime_mail.h"
#include "deliver/sun_mail.h"
#include "disk/files.h"
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

static const char *or_default(const char *text, const char *otherwise)
{
    return is_empty(text) ? otherwise : text;
}

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
    const std::string address = found;  // what is logged below may be mailed too, to another address

    const std::string header = "From: " + header_value(mail_get_mail_from()) +
                               "\nSubject: " + header_value(or_default(subject, default_notice_subject)) +
                               "\n";
    mail_agent agent("mail", address.c_str());
    if (!agent.stream())
        return log_and_trace({ELOG_ERROR, ELOG_FILE}, "mail: popen(\"%s\") failed: %s\n", agent.command(),
                             strerror(agent.error()));
    trprintf("mail(): header...\n");
    trprintf("%s", header.c_str());
    trprintf("mail(): mess...\n");
    trprintf("'%s'\n", message);
    fprintf(agent.stream(), "%s\n%s\n", header.c_str(), message);
    return 1;
} catch (const std::bad_alloc &) {
    return no_memory("mail");
}

// Faxes

namespace {

// The file that is mailed: the fax itself, or what it was converted to, which goes with its owner.
class working_file {
public:
    explicit working_file(const char *fax_path) : fax_path_(fax_path), path_(fax_path) {}
    ~working_file()
    {
        if (path_ != fax_path_)
            unlink(path_.c_str());
    }
    working_file(const working_file &) = delete;
    working_file &operator=(const working_file &) = delete;

    const char *fax_path() const { return fax_path_; }
    const char *path() const { return path_.c_str(); }
    void converted_to(const std::string &path) { path_ = path; }

private:
    const char *fax_path_;
    std::string path_;
};

}  // namespace

static void call(void (*keepalive)())
{
    if (keepalive)
        keepalive();
}

// `fax_path` with ".tif" for the first ".fax" of its last component and all behind that, or at its end.
static std::string tiff_name(const char *fax_path)
{
    const char *ext = strcasestr(last_component(fax_path), ".fax");
    return (ext ? std::string(fax_path, ext) : std::string(fax_path)) + ".tif";
}

static bool to_tiff(working_file *file, void (*keepalive)())
{
    std::string copy_path = tiff_name(file->fax_path());
    call(keepalive);
    if (copy_new(file->fax_path(), copy_path.c_str())) {
        file->converted_to(copy_path);
        if (fax_to_tiff(file->path()) > 0)
            return true;
    }
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't filter fax file: [%s]\n",
                  file->fax_path());
    return false;
}

static bool to_pdf(working_file *file)
{
    std::string pdf = converted_name(file->fax_path(), ".pdf");
    if (fax_to_pdf(file->fax_path(), pdf.c_str())) {
        file->converted_to(pdf);
        return true;
    }
    log_and_trace({ELOG_WARNING, elog_file_and_stderr}, "format_fax_file: Can't filter fax file: [%s]\n",
                  file->fax_path());
    return false;
}

static bool to_mh(const working_file &file, void (*keepalive)())
{
    if (t4dec_change_format(file.fax_path(), 0, -1, keepalive))
        return true;
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't change compression: [%s]\n",
                  file.fax_path());
    return false;
}

static bool convert(working_file *file, int format, void (*keepalive)())
{
    switch (format) {
    case IV_FILE_FORMAT_TIFF_F:
        return to_tiff(file, keepalive);
    case IV_FILE_FORMAT_G3:
    case IV_FILE_FORMAT_G3MH:
    case IV_FILE_FORMAT_G3MR:
    case IV_FILE_FORMAT_G4:
        return to_mh(*file, keepalive);
    case IV_FILE_FORMAT_PDF:
        return to_pdf(file);
    default:
        return true;
    }
}

// The fax between two lines to cut at. False when it cannot be read to its end.
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

// Kept: the agent gets `address` as it stands in the recipient's entry, scheme and all.
static int mail_plain(const char *address, const char *subject, const char *text, const char *path,
                      int encoding)
{
    file_ptr fax(fopen(path, "re"));
    if (!fax)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't open fax file [%s]: %s\n",
                             path, strerror(errno));
    const std::string sender = header_value(mail_get_mail_from());
    mail_agent agent("mail_fax_image", address);
    FILE *out = agent.stream();
    if (!out)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Can't send mail to [%s]: %s\n",
                             address, strerror(agent.error()));
    fprintf(out, "To:   %s\nFrom: %s\nSubject: %s\n\n", header_value(address).c_str(), sender.c_str(),
            header_value(subject).c_str());
    fputs(text, out);
    bool encoded = encoding == IV_BODY_ENCODING_BASE64 ? write_base64(fax.get(), out)
                                                       : write_uuencode(fax.get(), last_component(path), out);
    return encoded ? 1 : -1;
}

int mail_fax_image(const char *address, const char *subject, const char *text, const char *fax_path,
                   const char *method, const char *encoding, const char *format, void (*keepalive)())
try {
    const char *found = get_mail_address(address);
    if (!found)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Bad user address [%s]\n",
                             shown(address));
    const std::string resolved = found;                           // as in mail()
    trprintf("mail_fax_image():  rfc_822_addr: '%s'\n ", found);  // Kept: the blank at its end
    if (!is_corvane_fax(fax_path))
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mail_fax_image: Bad fax file [%s]\n",
                             shown(fax_path));
    subject = or_default(subject, default_fax_subject);
    text = or_default(text, default_fax_text);

    working_file file(fax_path);
    const int format_handle = as_get_value_handle(AS_DELIVERY_FILE_FORMAT, format);
    const bool tiff = format_handle == IV_FILE_FORMAT_TIFF_F;
    if (!convert(&file, format_handle, keepalive))
        return -1;
    call(keepalive);
    switch (as_get_value_handle(AS_DELIVERY_METHOD, method)) {
    case IV_DELIVERY_METHOD_MIMEMAIL_ATTACH:
        return mime_mail_fax(resolved.c_str(), 0, subject, text, file.path(), tiff ? mime_tiff : mime_fax);
    case IV_DELIVERY_METHOD_SUNMAIL_ATTACH:
        return sun_mail_fax(resolved.c_str(), subject, text, file.path(), tiff ? sun_tiff : sun_fax);
    default:
        break;
    }
    int result = mail_plain(address, subject, text, file.path(),
                            as_get_value_handle(AS_DELIVERY_BODY_ENCODING, encoding));
    if (result > 0)
        call(keepalive);
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
