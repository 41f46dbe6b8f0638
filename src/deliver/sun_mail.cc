// Encodes the fax into a file, counts its lines and bytes, and only then writes the message.
#include "deliver/sun_mail.h"

#include <sys/param.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "deliver/mail_agent.h"
#include "deliver/mail_encoding.h"
#include "disk/files.h"
#include "disk/scratch_file.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/empty_format.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

namespace {

struct length_t {
    int lines = 0;  // newline characters
    int bytes = 0;

    length_t operator+(const length_t &other) const { return {lines + other.lines, bytes + other.bytes}; }
};

}  // namespace

// The mail-tool counts lines by their newlines, so a last line without one does not count.
static length_t get_message_length(const char *text, size_t bytes)
{
    return {static_cast<int>(std::count(text, text + bytes, '\n')), static_cast<int>(bytes)};
}

static length_t get_message_length(const char *text)
{
    return get_message_length(text, strlen(text));
}

// Creates the file for the encoded fax in the work directory, open for reading and writing.
static file_ptr make_file(scratch_file *scratch)
{
    char path[MAXPATHLEN];
    unique_fd fd(unique_file("FDM.", path));
    if (!path[0])
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: tempnam failed: %s\n", strerror(errno));
    else if (!fd)
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: failed to open '%s': %s\n", path,
                      strerror(errno));
    if (!fd)
        return nullptr;
    *scratch = scratch_file(path);
    file_ptr file(fdopen(fd.get(), "w+b"));
    if (file)
        fd.release();
    else
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: fdopen failed: %s\n", strerror(errno));
    return file;
}

// Writes the encoded fax to the file. If the file could not take all of it, nothing is mailed, as if the fax
// could not be read.
static bool encode(const char *fax_path, FILE *out)
{
    file_ptr fax(fopen(fax_path, "rbe"));
    if (!fax) {
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: fopen(%s) failed: %s\n", fax_path,
                      strerror(errno));
        return false;
    }
    fprintf(out, "begin %o %s\n", 0444U, last_component(fax_path));
    bool encoded = encode_uuencode(fax.get(), out);
    fputs("end\n", out);
    if (fflush(out) != 0 || ferror(out) || !encoded) {
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: encode_uuencode failed\n");
        return false;
    }
    return true;
}

// The file is read twice after it has been written: to count it and to send it.
static bool rewind_file(FILE *file)
{
    if (fseek(file, 0, SEEK_SET) == 0)
        return true;
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: fseek failed: %s\n", strerror(errno));
    return false;
}

// Whether all reads of the encoded file have succeeded; if not, logs why.
static bool is_sound(FILE *encoded, const char *address)
{
    if (!ferror(encoded))
        return true;
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: Can't send mail to [%s]: ferror->%s\n", address,
                  strerror(errno));
    return false;
}

static length_t count(FILE *in)
{
    length_t length;
    char piece[8192];
    for (size_t n; (n = fread(piece, 1, sizeof piece, in)) > 0;)
        length = length + get_message_length(piece, n);
    return length;
}

// Stops quietly if the agent no longer reads; its exit status is logged.
static void copy_all(FILE *in, FILE *out)
{
    char piece[8192];
    for (size_t n; (n = fread(piece, 1, sizeof piece, in)) > 0;)
        if (fwrite(piece, 1, n, out) != n)
            return;
}

// The headers of the two parts, as the mail-tool writes them. Null, with an entry in the exception log, when
// out of memory.
static c_string text_header(length_t text)
{
    char *header = nullptr;
    if (asprintf(&header,
                 "----------\nX-Sun-Data-Type: text\nX-Sun-Data-Description: text\nX-Sun-Data-Name: text\n"
                 "X-Sun-Charset: us-ascii\nX-Sun-Content-Lines: %d\nX-Sun-Content-Length: %d\n",
                 text.lines, text.bytes) >= 0)
        return c_string(header);
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: Can't malloc space for text header: %s\n",
                  strerror(errno));
    return nullptr;
}

static c_string fax_header(const char *data_type, const char *name, length_t fax)
{
    char *header = nullptr;
    if (asprintf(&header,
                 "----------\nX-Sun-Data-Type: %s\nX-Sun-Data-Name: %s\nX-Sun-Encoding-Info: uuencode\n"
                 "X-Sun-Content-Lines: %d\nX-Sun-Content-Length: %d\n",
                 header_value(data_type).c_str(), header_value(name).c_str(), fax.lines, fax.bytes) >= 0)
        return c_string(header);
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: Can't malloc space for fax header: %s\n",
                  strerror(errno));
    return nullptr;
}

static void trace_call(const char *address, const char *subject, const char *text, const char *fax_path,
                       const char *data_type)
{
    if (!address || !subject || !text || !fax_path)
        trprintf("sun_mail_fax(): null arg %x %x %x %x %x\n", pointer_bits(address), pointer_bits(subject),
                 pointer_bits(text), pointer_bits(fax_path), pointer_bits(data_type));
    else
        trprintf("sun_mail_fax(): user='%s', subject='%s', mess='%s', path_to_fax='%s', content_type='%s'\n",
                 address, subject, text, fax_path, shown(data_type));
}

// The entry for an agent that could not be run, or took too long.
static int fail(const mail_agent &agent)
{
    return log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: popen(\"%s\") failed: %s\n",
                         agent.command(), strerror(agent.error()));
}

int sun_mail_fax(const char *address, const char *subject, const char *text, const char *fax_path,
                 const char *data_type)
{
    trace_call(address, subject, text, fax_path, data_type);
    address = address ? address : "";
    text = text ? text : "";
    fax_path = fax_path ? fax_path : "";

    // The sizes of all that follows are in the headers, so the fax is encoded first and counted.
    scratch_file scratch;
    file_ptr encoded = make_file(&scratch);
    if (!encoded || !encode(fax_path, encoded.get()) || !rewind_file(encoded.get()))
        return -1;

    // Every header counts what follows it, and the message's header counts all of it, the other headers
    // included.
    const length_t fax_length = count(encoded.get()), text_length = get_message_length(text);
    if (!is_sound(encoded.get(), address) || !rewind_file(encoded.get()))
        return -1;
    const c_string before_text = text_header(text_length);
    const c_string before_fax =
        before_text ? fax_header(data_type, last_component(fax_path), fax_length) : nullptr;
    if (!before_fax)
        return -1;
    const length_t total = text_length + fax_length + get_message_length(before_text.get()) +
                           get_message_length(before_fax.get());

    // Only now is the agent started: nothing that could still fail on our side leaves half a message.
    const std::string sender = header_value(mail_get_mail_from());
    mail_agent agent(mail_kind::fax, "sun_mail_fax", address);
    FILE *out = agent.stream();
    if (!out)
        return fail(agent);
    fprintf(out, "From: %s\nSubject: %s\nContent-Type: X-sun-attachment\nX-Lines: %d\nContent-Length: %d\n",
            sender.c_str(), header_value(subject).c_str(), total.lines, total.bytes);
    // Kept: the text is printed as a format, but its lines and bytes are counted before that: users who wrote
    // "%%" into their texts for this form get "%".
    fprintf(out, "\n%s\n%s%s\n", before_text.get(), print_empty_format(text).c_str(), before_fax.get());
    copy_all(encoded.get(), out);

    if (!is_sound(encoded.get(), address))
        return -1;
    if (fclose(encoded.release()) != 0)
        return log_and_trace({ELOG_WARNING, ELOG_FILE}, "sun_mail_fax: Can't send mail to [%s]: fclose->%s\n",
                             address, strerror(errno));
    return agent.finish() ? 1 : fail(agent);
}

}  // namespace faxtray
