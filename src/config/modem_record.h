// modem_record: a fax line's entry of MODEMS.info as a typed record, each value checked.
//
// For the fax system's other programs (the dialler above all). Ours call mi_is_valid_setting only.
#pragma once

#include <sys/param.h>

#include <array>

#include "config/av_list.h"

namespace faxtray {

// What a line is reserved for.
enum : int {
    RESERVED_OUTGOING = 1,
    RESERVED_INCOMING = 2,
    RESERVED_GENERAL = 3,
    RESERVED_VOICE = 6,
    RESERVED_VOICE_OUTGOING = 7,
    RESERVED_DID_INFO = 8,  // direct-inward-dialling information line
};

// Fax signalling rates: 0 to 5.
enum : int { RATE_2400 = 0, RATE_4800, RATE_7200, RATE_9600, RATE_12000, RATE_14400 };

// Line speeds: the values of B2400 to B38400 in POSIX <termios.h>.
enum : int { LINE_2400 = 11, LINE_4800, LINE_9600, LINE_19200, LINE_38400 };

enum : int { COMPRESSION_MH = 0, COMPRESSION_MR = 1 };
enum : int { FCLASS_NONE = 0, FCLASS_2, FCLASS_2_0 };

// A setting taken as text; one longer than an info file can hold is cut.
using modem_text_t = std::array<char, 512>;

struct modem_record_t {
    char device[MAXPATHLEN];     // path of the device
    char directory[MAXPATHLEN];  // where faxes land; for the voice reservations the script
    int reservation;             // RESERVED_*
    int out_queue;
    int fclass;       // FCLASS_*
    int permissions;  // of received files, 0 to 0777

    int max_receive_rate, max_send_rate, min_send_rate;  // RATE_*
    int line_speed;                                      // LINE_*
    int receive_compression, send_compression;           // COMPRESSION_*
    bool receive_quality_checking, unsupervised_dialing, hardware_flow_control;
    int heroic_timeout, get_reply_timeout;  // seconds

    modem_text_t modem_type;
    modem_text_t common_config, user_config, refresh, initial_config, no_blacklisting;  // commands
    modem_text_t dial_prefix;
    modem_text_t config_after_receive, config_after_send;
    modem_text_t tattle_tale_full_config, tattle_tale_no_config, tattle_tale_refresh_config;
    modem_text_t tattle_tale_register;

    modem_text_t channel_type, remote_type, remote_host;
    int remote_port;                    // -1 for none
    int local_channel, remote_channel;  // -1 for none
};

// Clears `record` and fills it from a device's entry; the record keeps no pointers into the entry. Returns 1,
// or 0 for a null argument, an empty device name, an unknown usage, a voice line without script or a path
// that is too long. Any other invalid value is reported and keeps its default. Messages go to
// mi_error_stream().
int mi_init_modem_info(modem_record_t *record, const av_list_t *entry);

// 1 if a comma-separated list of fax classes contains exactly `fclass`, else 0. Kept: trailing characters
// that are not digits are cut off `list_text` itself.
int mi_is_fclass(char *list_text, const char *fclass);

// The codes of the texts above; -1 for any other text.
int mi_fax_rate(const char *text);
int mi_line_speed(const char *text);
int mi_reservation(const char *usage);  // null or "" is general

// Whether mi_init_modem_info and build_speaker_string take that value of a setting as it stands; true for
// settings that may have any.
bool mi_is_valid_setting(const char *attr, const char *value);

// The modem command for an entry's speaker_on and speaker_volume, such as "M1L0", in a static buffer. A
// setting that is missing or invalid is traced and left out.
const char *build_speaker_string(const av_list_t *entry);

}  // namespace faxtray
