// All parts are in base64, so whatever a fax holds, none of it is a line of the message, and the boundary
// occurs in none of them. What is made of the fax waits in files without names: the message is written from
// beginning to end, in constant memory.
#include "client/fax_message.h"

#include <unistd.h>
#include <uuid/uuid.h>

#include <cerrno>
#include <cstring>

#include "client/fax_forms.h"
#include "client/fetched_fax.h"
#include "client/mail_header.h"
#include "client/output.h"
#include "config/munged_name.h"
#include "disk/unnamed_file.h"
#include "document/pdf_writer.h"
#include "document/png_writer.h"
#include "util/clock_text.h"
#include "util/command_output.h"
#include "util/line_encoding.h"

namespace faxtray {

static constexpr char boundary[] = "faxtray-part";
static constexpr int picture_width = 864;  // pixels, half a page's: small, and still to be read on a phone

// What of a fax can be shown.
namespace {

struct shown_fax_pages_t {
    fax_pages_t pages;
    page_range_t range = {1, 0};  // those that are whole
    bool all = false;             // no page is missing
};

}  // namespace

// The namespace is a random UUID (version 4), made once for this purpose.
std::string fax_uuid(const session &s, const fax_entry &fax)
{
    static constexpr uuid_t faxes = {0xd5, 0x35, 0x07, 0x02, 0x6b, 0x02, 0x44, 0x0e,
                                     0xba, 0xc1, 0xe3, 0x82, 0xd0, 0xd9, 0x14, 0xe1};
    std::string key;
    for (const std::string &value : {s.chosen.host, munged_key(s.chosen.user.c_str()), s.inbox.value_or(""),
                                     fax.name, std::to_string(fax.size), std::to_string(fax.mtime)})
        key += value + '\0';
    uuid_t id;
    char text[UUID_STR_LEN];
    uuid_generate_sha1(id, faxes, key.data(), key.size());
    uuid_unparse_lower(id, text);
    return text;
}

// The message's own lines.

static std::string mail_date(time_t t)
{
    tm parts = {};
    gmtime_r(&t, &parts);  // the protocol has no time that it refuses
    char text[64];
    snprintf(text, sizeof text, "%d %s %d %02d:%02d:%02d +0000", parts.tm_mday, months[parts.tm_mon],
             parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

static std::string subject_of(const fax_entry &fax)
{
    if (!fax.is_fax)
        return "File " + fax.name;
    std::string subject = fax.sender.empty() ? "Fax" : "Fax from " + fax.sender;
    if (fax.pages > 0)
        subject += ", " + std::to_string(fax.pages) + (fax.pages == 1 ? " page" : " pages");
    return subject;
}

static void write_header(const session &s, const fax_entry &fax, const std::string &uuid, FILE *out)
{
    fprintf(out,
            "Message-ID: <%s@fax.invalid>\nDate: %s\nFrom: %s\nTo: %s\nSubject: %s\nMIME-Version: 1.0\n"
            "Content-Type: multipart/mixed; boundary=\"%s\"\n",
            uuid.c_str(), mail_date(fax.mtime).c_str(),
            header_mailbox(fax.sender.empty() ? "Unknown" : fax.sender).c_str(),
            header_mailbox(s.chosen.user).c_str(), header_text(subject_of(fax)).c_str(), boundary);
}

// What the reader sees first.
static std::string text_of(const session &s, const fax_entry &fax, const shown_fax_pages_t &shown)
{
    std::string text;
    auto add = [&](const char *name, const std::string &value) {
        if (!value.empty())
            text += name + plain_utf8(value) + "\r\n";
    };
    add("Sender:      ", fax.sender);
    add("Received:    ", date_text(fax.mtime));
    add("Pages:       ", fax.pages < 0 ? "" : std::to_string(fax.pages));
    add("Subaddress:  ", fax.subaddress);
    add("File:        ", fax.name + ", " + std::to_string(fax.size) + " bytes");
    add("Inbox:       ", (s.chosen.inbox.empty() ? s.chosen.user : s.chosen.inbox) + " at " + s.chosen.host);
    if (fax.is_fax && !shown.all)
        text += "\r\nThe fax is damaged: " +
                (shown.range.last < 1 ? "no page"
                                      : "only " + std::to_string(shown.range.last) + " of its pages") +
                " can be shown. Its file is attached as it is.\r\n";
    return text;
}

// Parts.

// What `bytes` holds, from its beginning to its end. False, with the reason printed, if it cannot be read.
static bool write_part(FILE *out, const std::string &type, const std::string &disposition, FILE *bytes)
{
    fprintf(out, "\n--%s\nContent-Type: %s\nContent-Disposition: %s\nContent-Transfer-Encoding: base64\n\n",
            boundary, type.c_str(), disposition.c_str());
    rewind(bytes);
    if (base64_lines(bytes, out))
        return true;
    fprintf(stderr, "faxtray: can't read a temporary file: %s\n", strerror(errno));
    return false;
}

static bool write_text_part(FILE *out, std::string text)
{
    const file_ptr bytes(fmemopen(text.data(), text.size(), "r"));
    return bytes && write_part(out, "text/plain; charset=utf-8", "inline", bytes.get());
}

// A part that `write` writes to a descriptor. False with the reason printed.
template <class Write>
bool write_made_part(FILE *out, const std::string &type, const std::string &disposition, Write write)
{
    unique_fd fd = make_unnamed_file();
    const file_ptr bytes(fd ? fdopen(fd.get(), "r") : nullptr);
    if (!bytes) {
        fprintf(stderr, "faxtray: can't make a temporary file: %s\n", strerror(errno));
        return false;
    }
    return write(fd.release()) && write_part(out, type, disposition, bytes.get());
}

static bool write_picture(FILE *out, shown_fax_pages_t *shown)
{
    const page_place_t first = {shown->pages.next, shown->pages.left};
    page_image_t page;
    if (decode_next_page(&shown->pages, &page) != EXIT_DONE)
        return false;
    const grey_image_t picture = scaled_preview(page, shown->pages.vertical_dpi, picture_width);
    return write_made_part(out, "image/png", "inline" + header_parameter("filename", "page-1.png"),
                           [&](int fd) { return write_png(picture, fd); }) &&
           return_to_page(&shown->pages, first);
}

// By its first bytes: deliveries leave PDF and TIFF in inboxes, too.
static std::string type_of(int fd)
{
    char start[5] = "";
    if (pread(fd, start, 4, 0) == 4) {
        if (strcmp(start, "%PDF") == 0)
            return "application/pdf";
        if (memcmp(start, "II*\0", 4) == 0 || memcmp(start, "MM\0*", 4) == 0)
            return "image/tiff";
    }
    return "application/octet-stream";
}

static bool write_parts(const session &s, const fax_entry &fax, shown_fax_pages_t *shown, FILE *file,
                        FILE *out)
{
    if (!write_text_part(out, text_of(s, fax, *shown)))
        return false;
    const std::string attachment = "attachment" + header_parameter("filename", file_name_for(fax)),
                      document = "attachment" + header_parameter("filename", stem_of(fax) + ".pdf");
    if (shown->range.last >= 1 &&
        (!write_picture(out, shown) || !write_made_part(out, "application/pdf", document, [&](int fd) {
            return write_pdf(&shown->pages, shown->range, fd);
        })))
        return false;
    return shown->all || write_part(out, type_of(fileno(file)), attachment, file);
}

exit_status write_fax_message(session &s, const fax_entry &fax, const std::string &uuid, FILE *out)
{
    unique_fd fetched;
    if (const exit_status status = fetch_file(s, fax, &fetched); status != EXIT_DONE)
        return status;
    shown_fax_pages_t shown;
    lseek(fetched.get(), 0, SEEK_SET);
    if (fax.is_fax &&
        open_fax_pages(unique_fd(dup(fetched.get())), "fax " + std::to_string(fax.id), &shown.pages)) {
        shown.pages.received = fax.mtime;
        shown.range = {};
        shown.all = find_whole_pages(&shown.pages, &shown.range) == EXIT_DONE;
    }
    const file_ptr file(fdopen(fetched.get(), "r"));
    if (!file)
        return EXIT_LOCAL;
    fetched.release();
    write_header(s, fax, uuid, out);
    if (!write_parts(s, fax, &shown, file.get(), out))
        return EXIT_LOCAL;
    fprintf(out, "\n--%s--\n", boundary);
    return EXIT_DONE;
}

}  // namespace faxtray
