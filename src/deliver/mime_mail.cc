// Writes the message straight to the agent and encodes the fax on its way, so that a fax of any size needs
// neither memory nor a file.
#include "deliver/mime_mail.h"

#include <cerrno>
#include <cstring>

#include "deliver/mail_agent.h"
#include "deliver/mail_encoding.h"
#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/owned.h"
#include "util/paths.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

static constexpr char boundary[] = "Ondrix-MIME-FAX-Boundary";

// The attachment. Its name is the file's own; the type says whether it is a fax or a TIFF.
static void write_fax_part(FILE *out, file_ptr fax, const char *fax_path, const char *content_type)
{
    fprintf(out, "\n--%s\nContent-Type: %s; name=\"%s\"\nContent-Transfer-Encoding: base64\n\n", boundary,
            content_type ? content_type : "", header_value(last_component(fax_path)).c_str());
    if (!encode_base64(fax.get(), out))
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "mime_mail_fax: Problem reading fax [%s]: %s\n", fax_path,
                      strerror(errno));
    if (fclose(fax.release()) != 0)
        log_and_trace({ELOG_WARNING, ELOG_FILE}, "mime_mail_fax: Problem closing fax [%s]: %s\n", fax_path,
                      strerror(errno));
}

// The entry for an agent that could not be run, or took too long.
static int fail(const mail_agent &agent)
{
    return log_and_trace({ELOG_WARNING, ELOG_FILE}, "mime_mail_fax: popen(\"%s\") failed: %s\n",
                         agent.command(), strerror(agent.error()));
}

int mime_mail_fax(const char *address, int, const char *subject, const char *text, const char *fax_path,
                  const char *content_type)
{
    if (!address || !subject || !text)
        trprintf("mime_mail_fax(): null arg %x %x %x %x %x\n", pointer_bits(address), pointer_bits(subject),
                 pointer_bits(text), pointer_bits(fax_path), pointer_bits(content_type));
    else
        trprintf("mime_mail_fax(): user='%s', subject='%s', mess='%s', path_to_fax='%s', content_type='%s'\n",
                 address, subject, text, shown(fax_path), shown(content_type));

    // The fax is opened first: once the agent runs, a message will be sent.
    file_ptr fax;
    if (fax_path) {
        fax.reset(fopen(fax_path, "re"));
        if (!fax) {
            trprintf("mime_mail_fax: Can't open fax file [%s]: %s\n", fax_path, strerror(errno));
            return -1;
        }
    }
    const std::string sender = header_value(mail_get_mail_from());
    mail_agent agent(mail_kind::fax, "mime_mail_fax", address);
    FILE *out = agent.stream();
    if (!out)
        return fail(agent);

    // Header values come from the recipient's entry and the registry; each is made one line.
    fprintf(out,
            "To:   %s\nFrom: %s\nSubject: %s\nMime-Version: 1.0\nContent-Type: multipart/mixed;\n"
            "\tboundary=\"%s\"\n",
            header_value(address).c_str(), sender.c_str(), header_value(subject).c_str(), boundary);
    // Mail programs show the text part and offer the fax for saving.
    if (!is_empty(text))
        fprintf(out, "\n--%s\nContent-Type: text/plain; charset=us-ascii\n\n%s\n\n", boundary, text);
    if (fax)
        write_fax_part(out, std::move(fax), fax_path, content_type);
    fprintf(out, "\n\n--%s--\n", boundary);
    return agent.finish() ? 1 : fail(agent);
}

}  // namespace faxtray
