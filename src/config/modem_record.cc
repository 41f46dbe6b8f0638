// Tables of the values that settings may have, and the steps that fill the record.
#include "config/modem_record.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "config/error_stream.h"
#include "config/modem_defaults.h"
#include "config/modem_list_file.h"
#include "util/text.h"
#include "util/trace.h"

namespace faxtray {

namespace {
struct code_t {
    const char *text;
    int code;
};

struct text_setting_t {
    const char *attr;
    modem_text_t modem_record_t::*field;
};
}  // namespace

static constexpr code_t reservations[] = {
    {"ondrix", RESERVED_GENERAL}, {"ondrix_o", RESERVED_OUTGOING},        {"ondrix_i", RESERVED_INCOMING},
    {"ondrix_v", RESERVED_VOICE}, {"ondrix_vo", RESERVED_VOICE_OUTGOING},
};

static constexpr code_t fax_rates[] = {
    {"2400", RATE_2400}, {"4800", RATE_4800},   {"7200", RATE_7200},
    {"9600", RATE_9600}, {"12000", RATE_12000}, {"14400", RATE_14400},
};

static constexpr code_t line_speeds[] = {
    {"2400", LINE_2400},   {"4800", LINE_4800},   {"9600", LINE_9600},
    {"19200", LINE_19200}, {"38400", LINE_38400},
};

static constexpr code_t compressions[] = {{"MH", COMPRESSION_MH}, {"MR", COMPRESSION_MR}};

// Command strings, copied unchanged. Those with a built-in value are required.
static constexpr text_setting_t text_settings[] = {
    {"common_config_string", &modem_record_t::common_config},
    {"user_modem_config", &modem_record_t::user_config},
    {"refresh_cmds", &modem_record_t::refresh},
    {"initial_config_cmd", &modem_record_t::initial_config},
    {"no_blacklisting_cmd", &modem_record_t::no_blacklisting},
    {"how_to_config_after_rcv", &modem_record_t::config_after_receive},
    {"how_to_config_after_send", &modem_record_t::config_after_send},
    {"modem_type", &modem_record_t::modem_type},
    {"modem_dial_prefix", &modem_record_t::dial_prefix},
    {"tattle_tale_full_config", &modem_record_t::tattle_tale_full_config},
    {"tattle_tale_no_config", &modem_record_t::tattle_tale_no_config},
    {"tattle_tale_refresh_config", &modem_record_t::tattle_tale_refresh_config},
    {"tattle_tale_register", &modem_record_t::tattle_tale_register},
};

// Of the channel board; none is required.
static constexpr text_setting_t channel_settings[] = {
    {"mchannel_type", &modem_record_t::channel_type},
    {"mchannel_remote_type", &modem_record_t::remote_type},
    {"mchannel_remote_host", &modem_record_t::remote_host},
};

static bool is_digit(char ch)
{
    return ch >= '0' && ch <= '9';
}

// The built-in value of a setting, or null.
static const char *builtin(const char *attr)
{
    for (const modem_setting_t &row : modem_defaults)
        if (strcmp(row.name, attr) == 0)
            return row.value;
    return nullptr;
}

template <size_t N> static int find_code(const code_t (&table)[N], const char *text)
{
    for (const code_t &row : table)
        if (strcmp(row.text, text) == 0)
            return row.code;
    return -1;
}

// Stores the number that the whole of `text` is. False, with `*number` unchanged, if it is none.
static bool scan_number(const char *text, int *number)
{
    char *end;
    errno = 0;
    long value = strtol(text, &end, 10);
    if (end == text || *end || errno != 0 || value < INT_MIN || value > INT_MAX)
        return false;
    *number = static_cast<int>(value);
    return true;
}

int mi_fax_rate(const char *text)
{
    return find_code(fax_rates, text);
}

int mi_line_speed(const char *text)
{
    return find_code(line_speeds, text);
}

int mi_reservation(const char *usage)
{
    if (is_empty(usage))
        return RESERVED_GENERAL;
    if (strstr(usage, "ondrix_did_info"))
        return RESERVED_DID_INFO;
    return find_code(reservations, usage);
}

int mi_is_fclass(char *list_text, const char *fclass)
{
    if (!list_text || !fclass) {
        trprintf("mi_is_fclass:  bad arg, fclass_string=%s, fclass=%s.\n", shown(list_text), shown(fclass));
        return 0;
    }
    // Administrators write "1,2,2.0 " or "(1,2)": what surrounds the digits does not matter.
    size_t n = strlen(list_text);
    while (n > 0 && !is_digit(list_text[n - 1]))
        list_text[--n] = '\0';
    const char *first = list_text;
    while (*first && !is_digit(*first))
        first++;

    // The pieces are compared as text: "2.0" is not "2".
    char **pieces = nullptr;
    if (split(first, ',', &pieces) < 0)
        return 0;
    int found = 0;
    for (char **piece = pieces; *piece; piece++)
        found = found || strcmp(*piece, fclass) == 0;
    free(pieces);
    return found;
}

// The steps of mi_init_modem_info, in its order; those that return false reject the record.

static bool set_device(modem_record_t *record, const av_list_t *entry)
{
    const char *name = entry->key;
    // A name that is a path already needs no directory before it. Kept: a backslash counts as well.
    const char *root = av_getv(entry, "dev_root");
    int n;
    if (*name == '/' || *name == '\\')
        n = snprintf(record->device, sizeof record->device, "%s", name);
    else if (!is_empty(root))
        n = snprintf(record->device, sizeof record->device, "%s%c%s", root, '/', name);
    else
        n = snprintf(record->device, sizeof record->device, "/dev/%s", name);
    if (n >= MAXPATHLEN) {
        report_to(mi_error_stream(), "%s: Path length exceeds MAXPATHLEN of %d for device [%s].\n",
                  "init_modem_info", MAXPATHLEN, name);
        return false;
    }
    return true;
}

// Before the other steps: directory and line speed depend on the reservation.
static bool set_reservation(modem_record_t *record, const av_list_t *entry)
{
    const char *usage = av_getv(entry, "usage");
    record->reservation = mi_reservation(usage);
    if (record->reservation < 0)
        report_to(mi_error_stream(), "\nDialerd: Invalid modem reservation: [%s].\n", usage);
    return record->reservation >= 0;
}

// Messages that begin with "Dialerd" are those of the send and receive daemon, which shares this file.
static void set_queue(modem_record_t *record, const av_list_t *entry)
{
    record->out_queue = 1;
    const char *queue = av_getv(entry, "out_queue_num");
    if (queue && !scan_number(queue, &record->out_queue))
        report_to(mi_error_stream(), "\nDialerd: Warning: Ignoring invalid modem queue: [%s].\n", queue);
}

static void set_fclass(modem_record_t *record, const av_list_t *entry)
{
    const char *classes = av_getv(entry, "class");
    if (!classes)
        return;
    modem_text_t text;  // mi_is_fclass changes what it is given
    snprintf(text.data(), text.size(), "%s", classes);
    if (mi_is_fclass(text.data(), "2"))
        record->fclass = FCLASS_2;
    else if (mi_is_fclass(text.data(), "2.0"))
        record->fclass = FCLASS_2_0;
    else
        report_to(mi_error_stream(), "init_modem_info: Ignoring invalid class: [%s].\n", classes);
}

// Kept: voice lines have no incoming directory; their script takes its place in the record.
static bool set_directory(modem_record_t *record, const av_list_t *entry)
{
    bool voice = record->reservation == RESERVED_VOICE || record->reservation == RESERVED_VOICE_OUTGOING;
    const char *path = av_getv(entry, voice ? "voice_script" : "incoming_dir");
    if (voice && is_empty(path)) {
        report_to(mi_error_stream(), "\nDialerd warning: Null voice modem script declaration in file: [%s]\n",
                  "MODEMS.info");
        return false;
    }
    if (!path)
        path = "./incoming";
    if (snprintf(record->directory, sizeof record->directory, "%s", path) >= MAXPATHLEN) {
        report_to(mi_error_stream(), "%s: Path length exceeds MAXPATHLEN of %d for device [%s].\n",
                  "init_modem_info", MAXPATHLEN, entry->key);
        return false;
    }
    return true;
}

static void set_permissions(modem_record_t *record, const av_list_t *entry)
{
    record->permissions = 0777;  // unless a valid value is set
    const char *text = av_getv(entry, "incoming_perms");
    if (!text)
        return;
    int permissions = octal_perms_to_int(text);
    if (permissions < 0)
        report_to(mi_error_stream(), "init_modem_info: Ignoring invalid permissions: [%s].\n", text);
    else
        record->permissions = permissions;
}

// Stores the setting's code in `*code`. Returns the text if it is set but unknown, for the message; else
// null.
template <size_t N>
static const char *take_code(const av_list_t *entry, const char *attr, const code_t (&table)[N], int *code)
{
    const char *text = av_getv(entry, attr);
    int found = text ? find_code(table, text) : -1;
    if (found >= 0)
        *code = found;
    return found < 0 ? text : nullptr;
}

static void set_rates(modem_record_t *record, const av_list_t *entry)
{
    // Kept: these are not the built-in defaults of MODEMS.info, which an entry has already. They hold for an
    // entry read without defaults, and for invalid values.
    record->max_receive_rate = RATE_9600;
    record->max_send_rate = RATE_14400;
    record->min_send_rate = RATE_2400;
    record->line_speed = record->reservation == RESERVED_DID_INFO ? LINE_9600 : LINE_19200;
    if (const char *bad = take_code(entry, "max_receive_fax_rate", fax_rates, &record->max_receive_rate))
        report_to(mi_error_stream(), "\nDialerd: Ignoring invalid max_receive_fax_rate value: [%s].\n", bad);
    if (const char *bad = take_code(entry, "max_send_fax_rate", fax_rates, &record->max_send_rate))
        report_to(mi_error_stream(), "\nDialerd: Ignoring invalid max_send_fax_rate value: [%s].\n", bad);
    if (const char *bad = take_code(entry, "min_send_fax_rate", fax_rates, &record->min_send_rate))
        report_to(mi_error_stream(), "\nDialerd: Ignoring invalid min_send_fax_rate value: [%s].\n", bad);
    if (const char *bad = take_code(entry, "tty_baud_rate", line_speeds, &record->line_speed))
        report_to(mi_error_stream(), "\nDialerd: Ignoring invalid tty_baud_rate value: [%s].\n", bad);
}

// Kept: only these two spellings are off; "no" or "0" is on.
static bool flag(const av_list_t *entry, const char *attr)
{
    const char *text = av_getv(entry, attr);
    if (!text)
        text = builtin(attr);
    return strcmp(text, "false") != 0 && strcmp(text, "FALSE") != 0;
}

static void set_flags(modem_record_t *record, const av_list_t *entry)
{
    record->receive_quality_checking = flag(entry, "receive_quality_checking");
    record->unsupervised_dialing = flag(entry, "unsupervised_dialing");
    record->hardware_flow_control = flag(entry, "hardware_flow_control");
}

static void set_compression(modem_record_t *record, const av_list_t *entry)
{
    // Every modem can do MH, so it is what is assumed of what arrives.
    record->receive_compression = COMPRESSION_MH;
    record->send_compression = COMPRESSION_MR;
    if (!av_getv(entry, "receive_compression"))
        trprintf("receive_compression attribute not found. Using MH.\n");
    if (!av_getv(entry, "send_compression"))
        trprintf("send_compression attribute not found. Using MR.\n");
    if (const char *bad = take_code(entry, "receive_compression", compressions, &record->receive_compression))
        report_to(mi_error_stream(), "init_modem_info: Ignoring invalid receive compression: [%s].\n", bad);
    if (const char *bad = take_code(entry, "send_compression", compressions, &record->send_compression))
        report_to(mi_error_stream(), "init_modem_info: Ignoring invalid send compression: [%s].\n", bad);
}

static void set_text(modem_text_t *text, const char *value)
{
    snprintf(text->data(), text->size(), "%s", value ? value : "");
}

static void set_texts(modem_record_t *record, const av_list_t *entry)
{
    for (const text_setting_t &row : text_settings) {
        const char *value = av_getv(entry, row.attr);
        // A setting with a built-in value is required; the others may be left out without a message.
        if (!value && (value = builtin(row.attr)))
            report_to(mi_error_stream(), "init_modem_info: Null %s value.\n", row.attr);
        set_text(&(record->*row.field), value);
    }
}

// The setting in seconds; its built-in value if it is absent or no number.
static int timeout(const av_list_t *entry, const char *attr)
{
    int seconds = 0;
    scan_number(builtin(attr), &seconds);
    const char *text = av_getv(entry, attr);
    if (text && !scan_number(text, &seconds))
        report_to(mi_error_stream(), "init_modem_info: Ignoring invalid %s value: [%s].\n", attr, text);
    return seconds;
}

// The number in the setting, or if that is absent the first run of digits in the device name; -1 for none.
static int channel(const av_list_t *entry, const char *attr)
{
    int number = -1;
    if (const char *text = av_getv(entry, attr)) {
        scan_number(text, &number);
        return number;
    }
    const char *digits = entry->key + strcspn(entry->key, "0123456789");
    char run[12];
    snprintf(run, sizeof run, "%.*s", static_cast<int>(strspn(digits, "0123456789")), digits);
    scan_number(run, &number);
    return number;
}

static void set_channels(modem_record_t *record, const av_list_t *entry)
{
    for (const text_setting_t &row : channel_settings)
        set_text(&(record->*row.field), av_getv(entry, row.attr));
    record->remote_port = -1;
    if (const char *port = av_getv(entry, "mchannel_remote_port"))
        scan_number(port, &record->remote_port);
    record->local_channel = channel(entry, "mchannel_local_channel");
    record->remote_channel = channel(entry, "mchannel_remote_channel");
}

int mi_init_modem_info(modem_record_t *record, const av_list_t *entry)
{
    if (record)
        *record = {};
    if (!record || !entry || is_empty(entry->key)) {
        report_to(mi_error_stream(), "init_modem_info: Null device name.\n");
        return 0;
    }
    if (!set_device(record, entry) || !set_reservation(record, entry))
        return 0;
    set_queue(record, entry);
    set_fclass(record, entry);
    if (!set_directory(record, entry))
        return 0;
    set_permissions(record, entry);
    set_rates(record, entry);
    set_flags(record, entry);
    set_compression(record, entry);
    set_texts(record, entry);
    record->heroic_timeout = timeout(entry, "heroic_timeout");
    record->get_reply_timeout = timeout(entry, "get_reply_timeout");
    set_channels(record, entry);
    return 1;
}

// Speaker

namespace {
struct speaker_t {
    const char *value;
    const char *command;
};
}  // namespace

static constexpr speaker_t speaker_modes[] = {{"always", "M2"}, {"until_connect", "M1"}, {"never", "M0"}};
static constexpr speaker_t speaker_volumes[] = {{"low", "L0"}, {"medium", "L1"}, {"high", "L2"}};

// Compared without regard to case, unlike every other setting.
static const char *speaker_command(const speaker_t (&table)[3], const char *value)
{
    for (const speaker_t &row : table)
        if (strcasecmp(row.value, value) == 0)
            return row.command;
    return nullptr;
}

const char *build_speaker_string(const av_list_t *entry)
{
    static char text[8];
    text[0] = '\0';

    const char *on = av_getv(entry, "speaker_on");
    if (is_empty(on)) {
        trprintf("build_speaker_string: Null or missing %s attribute.\n", "speaker_on");
        return text;
    }
    const char *mode = speaker_command(speaker_modes, on);
    if (!mode) {
        trprintf("build_speaker_string: Invalid %s value: [%s].\n", "speaker_on", on);
        return text;
    }
    // From here on the mode alone is a sound command; a speaker that is off needs no volume.
    snprintf(text, sizeof text, "%s", mode);
    if (strcasecmp(on, "never") == 0)
        return text;

    const char *loudness = av_getv(entry, "speaker_volume");
    if (is_empty(loudness)) {
        trprintf("build_speaker_string: Missing %s value.\n", "speaker_volume");
        return text;
    }
    const char *volume = speaker_command(speaker_volumes, loudness);
    if (!volume) {
        trprintf("build_speaker_string: Invalid %s value: [%s].\n", "speaker_volume", loudness);
        return text;
    }
    snprintf(text, sizeof text, "%s%s", mode, volume);
    return text;
}

// Checks

static bool is_number(const char *text)
{
    int number;
    return scan_number(text, &number);
}

static bool is_class_list(const char *text)
{
    modem_text_t list;
    snprintf(list.data(), list.size(), "%s", text);
    return mi_is_fclass(list.data(), "2") || mi_is_fclass(list.data(), "2.0");
}

template <const auto &Table> static bool is_code(const char *text)
{
    return find_code(Table, text) >= 0;
}

template <const auto &Table> static bool is_speaker(const char *text)
{
    return speaker_command(Table, text) != nullptr;
}

static bool is_usage(const char *text)
{
    return mi_reservation(text) >= 0;
}

static bool is_permissions(const char *text)
{
    return octal_perms_to_int(text) >= 0;
}

// Settings that take only some values.
static constexpr struct {
    const char *attr;
    bool (*accepts)(const char *text);
} checked_settings[] = {
    {"usage", is_usage},
    {"class", is_class_list},
    {"max_receive_fax_rate", is_code<fax_rates>},
    {"max_send_fax_rate", is_code<fax_rates>},
    {"min_send_fax_rate", is_code<fax_rates>},
    {"tty_baud_rate", is_code<line_speeds>},
    {"receive_compression", is_code<compressions>},
    {"send_compression", is_code<compressions>},
    {"incoming_perms", is_permissions},
    {"out_queue_num", is_number},
    {"heroic_timeout", is_number},
    {"get_reply_timeout", is_number},
    {"mchannel_remote_port", is_number},
    {"mchannel_local_channel", is_number},
    {"mchannel_remote_channel", is_number},
    {"speaker_on", is_speaker<speaker_modes>},
    {"speaker_volume", is_speaker<speaker_volumes>},
};

bool mi_is_valid_setting(const char *attr, const char *value)
{
    for (const auto &row : checked_settings)
        if (strcmp(row.attr, attr) == 0)
            return row.accepts(value);
    return true;
}

}  // namespace faxtray
