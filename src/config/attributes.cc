// The names, values and handles of the enumerated settings.
#include "config/attributes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace faxtray {

namespace {
struct name_row_t {
    const char *name;
    int attr;
};
}  // namespace

// The tables stand as people read them; as_init_lookup sorts them for the look-ups.

static name_row_t names[] = {
    {"admin_notify_level", AS_ADMIN_NOTIFY_LEVEL},
    {"admin_exception_volume", AS_ADMIN_EXCEPTION_VOLUME},
    {"delivery_body_encoding", AS_DELIVERY_BODY_ENCODING},
    {"delivery_file_format", AS_DELIVERY_FILE_FORMAT},
    {"routing_number", AS_ROUTING_NUMBER},
    {"delivery_method", AS_DELIVERY_METHOD},
    {"delivery_naming", AS_DELIVERY_NAMING},
    {"email_address", AS_EMAIL_ADDRESS},
    {"delivery_dir", AS_DELIVERY_DIR},
    {"delivery_dir_root", AS_DELIVERY_DIR_ROOT},
    {"group", AS_GROUP},
    {"how_to_notify", AS_HOW_TO_NOTIFY},
    {"when_to_notify", AS_WHEN_TO_NOTIFY},
    {"server_mail_from", AS_SERVER_MAIL_FROM},
};

// Names and first values are filled in by as_init_lookup.
static as_attr_t attributes[] = {
    {AS_ADMIN_NOTIFY_LEVEL, nullptr, -1, nullptr},
    {AS_ADMIN_EXCEPTION_VOLUME, nullptr, -1, nullptr},
    {AS_DELIVERY_BODY_ENCODING, nullptr, -1, nullptr},
    {AS_DELIVERY_FILE_FORMAT, nullptr, IV_FILE_FORMAT_G3, nullptr},
    {AS_ROUTING_NUMBER, nullptr, -1, nullptr},
    {AS_DELIVERY_METHOD, nullptr, -1, nullptr},
    {AS_DELIVERY_NAMING, nullptr, IV_DELIVERY_NAMING_POSIX, nullptr},
    {AS_EMAIL_ADDRESS, nullptr, -1, nullptr},
    {AS_DELIVERY_DIR, nullptr, -1, nullptr},
    {AS_DELIVERY_DIR_ROOT, nullptr, -1, nullptr},
    {AS_GROUP, nullptr, -1, nullptr},
    {AS_HOW_TO_NOTIFY, nullptr, -1, nullptr},
    {AS_WHEN_TO_NOTIFY, nullptr, -1, nullptr},
    {AS_SERVER_MAIL_FROM, nullptr, -1, nullptr},
};

static as_value_t values[] = {
    {AS_ADMIN_NOTIFY_LEVEL, "error", IV_NOTIFY_LEVEL_ERROR},
    {AS_ADMIN_NOTIFY_LEVEL, "fatal", IV_NOTIFY_LEVEL_FATAL},
    {AS_ADMIN_NOTIFY_LEVEL, "none", IV_NOTIFY_LEVEL_NONE},
    {AS_ADMIN_NOTIFY_LEVEL, "notice", IV_NOTIFY_LEVEL_NOTICE},
    {AS_ADMIN_NOTIFY_LEVEL, "warning", IV_NOTIFY_LEVEL_WARNING},
    {AS_DELIVERY_BODY_ENCODING, "base64", IV_BODY_ENCODING_BASE64},
    {AS_DELIVERY_BODY_ENCODING, "uuencode", IV_BODY_ENCODING_UUENCODE},
    {AS_DELIVERY_FILE_FORMAT, "g3", IV_FILE_FORMAT_G3},
    {AS_DELIVERY_FILE_FORMAT, "g3mh", IV_FILE_FORMAT_G3MH},
    {AS_DELIVERY_FILE_FORMAT, "g3mr", IV_FILE_FORMAT_G3MR},
    {AS_DELIVERY_FILE_FORMAT, "g4", IV_FILE_FORMAT_G4},
    {AS_DELIVERY_FILE_FORMAT, "tiff_f", IV_FILE_FORMAT_TIFF_F},
    {AS_DELIVERY_FILE_FORMAT, "pdf", IV_FILE_FORMAT_PDF},
    {AS_DELIVERY_METHOD, "email_body", IV_DELIVERY_METHOD_EMAIL_BODY},
    {AS_DELIVERY_METHOD, "exec", IV_DELIVERY_METHOD_EXEC},
    {AS_DELIVERY_METHOD, "faxtray", IV_DELIVERY_METHOD_FAXTRAY},
    {AS_DELIVERY_METHOD, "mimemail_attach", IV_DELIVERY_METHOD_MIMEMAIL_ATTACH},
    {AS_DELIVERY_METHOD, "sunmail_attach", IV_DELIVERY_METHOD_SUNMAIL_ATTACH},
    {AS_DELIVERY_NAMING, "8.3", IV_DELIVERY_NAMING_8_3},
    {AS_DELIVERY_NAMING, "posix", IV_DELIVERY_NAMING_POSIX},
    {AS_HOW_TO_NOTIFY, "email", IV_HOW_TO_NOTIFY_EMAIL},
    {AS_HOW_TO_NOTIFY, "exec", IV_HOW_TO_NOTIFY_EXEC},
    {AS_WHEN_TO_NOTIFY, "never", IV_WHEN_TO_NOTIFY_NEVER},
    {AS_WHEN_TO_NOTIFY, "fax_exception", IV_WHEN_TO_NOTIFY_FAX_EXCEPTION},
    {AS_WHEN_TO_NOTIFY, "fax_failures", IV_WHEN_TO_NOTIFY_FAX_FAILURES},
    {AS_WHEN_TO_NOTIFY, "incoming_failures_only", IV_WHEN_TO_NOTIFY_INCOMING_FAILURES_ONLY},
    {AS_WHEN_TO_NOTIFY, "fax_incoming", IV_WHEN_TO_NOTIFY_FAX_INCOMING},
    {AS_WHEN_TO_NOTIFY, "fax_outgoing", IV_WHEN_TO_NOTIFY_FAX_OUTGOING},
};

static bool unprepared = true;

int as_init_lookup()
{
    if (!unprepared)
        return 1;
    unprepared = false;

    std::sort(std::begin(names), std::end(names),
              [](const name_row_t &a, const name_row_t &b) { return strcmp(a.name, b.name) < 0; });
    std::sort(std::begin(attributes), std::end(attributes),
              [](const as_attr_t &a, const as_attr_t &b) { return a.attr < b.attr; });
    std::sort(std::begin(values), std::end(values), [](const as_value_t &a, const as_value_t &b) {
        return a.attr != b.attr ? a.attr < b.attr : strcmp(a.value, b.value) < 0;
    });
    for (as_attr_t &row : attributes) {
        auto of_row = [&row](const auto &other) { return other.attr == row.attr; };
        if (auto name = std::find_if(std::begin(names), std::end(names), of_row); name != std::end(names))
            row.name = name->name;
        if (auto value = std::find_if(std::begin(values), std::end(values), of_row);
            value != std::end(values))
            row.values = value;
    }
    return 1;
}

const as_attr_t *as_get_entry(int attr)
{
    as_init_lookup();
    const as_attr_t *row =
        std::lower_bound(std::begin(attributes), std::end(attributes), attr,
                         [](const as_attr_t &entry, int wanted) { return entry.attr < wanted; });
    return row != std::end(attributes) && row->attr == attr ? row : nullptr;
}

int as_get_attr_handle(const char *name)
{
    as_init_lookup();
    if (!name)
        return -1;
    const name_row_t *row = std::lower_bound(
        std::begin(names), std::end(names), name,
        [](const name_row_t &entry, const char *wanted) { return strcmp(entry.name, wanted) < 0; });
    return row != std::end(names) && strcmp(row->name, name) == 0 ? row->attr : -1;
}

const as_attr_t *as_get_entry_by_string(const char *name)
{
    return as_get_entry(as_get_attr_handle(name));
}

const char *as_get_attr(int attr)
{
    const as_attr_t *row = as_get_entry(attr);
    return row ? row->name : nullptr;
}

// The first value row of `attr` that `matches`, or null.
template <class Match> static const as_value_t *find_value(int attr, Match matches)
{
    const as_attr_t *entry = as_get_entry(attr);
    if (!entry || !entry->values)
        return nullptr;
    for (const as_value_t *row = entry->values; row != std::end(values) && row->attr == attr; row++)
        if (matches(*row))
            return row;
    return nullptr;
}

int as_get_value_handle(int attr, const char *value)
{
    if (!value)
        return -1;
    auto row = find_value(attr, [value](const as_value_t &v) { return strcmp(v.value, value) == 0; });
    return row ? row->handle : -1;
}

const char *as_get_value_string(int attr, int value)
{
    auto row = find_value(attr, [value](const as_value_t &v) { return v.handle == value; });
    return row ? row->value : nullptr;
}

int as_get_value_handle_av(int attr, const av_list_t *list)
{
    return as_get_value_handle(attr, av_getv(list, as_get_attr(attr)));
}

av_node_t *as_get_av_node(int attr, const av_list_t *list)
{
    return av_get_node(list, as_get_attr(attr));
}

}  // namespace faxtray
