// Names, values and handles of the enumerated settings: two tables, sorted by the compiler, and the searches
// in them.
#include "config/attributes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string_view>

namespace faxtray {

// `rows` in the order that `before` defines. The source keeps the order in which people read them.
template <size_t N, class Row, class Before>
static constexpr std::array<Row, N> sorted(std::array<Row, N> rows, Before before)
{
    std::sort(rows.begin(), rows.end(), before);
    return rows;
}

static constexpr as_value_t value_rows[] = {
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

// The same rows, those of one attribute together and by value.
static constexpr auto values =
    sorted(std::to_array(value_rows), [](const as_value_t &a, const as_value_t &b) {
        return a.attr != b.attr ? a.attr < b.attr : std::string_view(a.value) < std::string_view(b.value);
    });

static constexpr as_attr_t attribute(int attr, const char *name, int default_value = -1)
{
    auto first = std::find_if(values.begin(), values.end(), [attr](auto &row) { return row.attr == attr; });
    return {attr, name, default_value, first == values.end() ? nullptr : &*first};
}

// By handle; the handles count from 0, so that a row's place is its handle.
static constexpr as_attr_t attributes[] = {
    attribute(AS_ADMIN_NOTIFY_LEVEL, "admin_notify_level"),
    attribute(AS_ADMIN_EXCEPTION_VOLUME, "admin_exception_volume"),
    attribute(AS_DELIVERY_BODY_ENCODING, "delivery_body_encoding"),
    attribute(AS_DELIVERY_FILE_FORMAT, "delivery_file_format", IV_FILE_FORMAT_G3),
    attribute(AS_ROUTING_NUMBER, "routing_number"),
    attribute(AS_DELIVERY_METHOD, "delivery_method"),
    attribute(AS_DELIVERY_NAMING, "delivery_naming", IV_DELIVERY_NAMING_POSIX),
    attribute(AS_EMAIL_ADDRESS, "email_address"),
    attribute(AS_DELIVERY_DIR, "delivery_dir"),
    attribute(AS_DELIVERY_DIR_ROOT, "delivery_dir_root"),
    attribute(AS_GROUP, "group"),
    attribute(AS_HOW_TO_NOTIFY, "how_to_notify"),
    attribute(AS_WHEN_TO_NOTIFY, "when_to_notify"),
    attribute(AS_SERVER_MAIL_FROM, "server_mail_from"),
};
static_assert(std::all_of(std::begin(attributes), std::end(attributes),
                          [](const as_attr_t &row) { return &row == &attributes[row.attr]; }));

// The same rows by name.
static constexpr auto by_name = sorted(std::to_array(attributes), [](const as_attr_t &a, const as_attr_t &b) {
    return std::string_view(a.name) < std::string_view(b.name);
});

int as_init_lookup()
{
    return 1;
}

const as_attr_t *as_get_entry(int attr)
{
    return attr >= 0 && attr < static_cast<int>(std::size(attributes)) ? &attributes[attr] : nullptr;
}

int as_get_attr_handle(const char *name)
{
    if (!name)
        return -1;
    auto row = std::lower_bound(
        by_name.begin(), by_name.end(), name,
        [](const as_attr_t &entry, const char *wanted) { return strcmp(entry.name, wanted) < 0; });
    return row != by_name.end() && strcmp(row->name, name) == 0 ? row->attr : -1;
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
    // The rows of one attribute are neighbours.
    for (const as_value_t *row = entry->values; row != values.data() + values.size() && row->attr == attr;
         row++)
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
