// modem_defaults: the built-in settings of a fax line, under the "default" section of MODEMS.info.
// incoming_root is missing: it is $ONDRIXHOME or the current directory, which are known only at run time.
#pragma once

namespace faxtray {

struct modem_setting_t {
    const char *name;
    const char *value;
};

inline constexpr modem_setting_t modem_defaults[] = {
    {"class_2_0_flow_control", "soft"},
    {"hardware_flow_control", "false"},
    {"common_config_string", "&FH0&D0X4S0=0S7=60"},
    {"how_to_config_after_rcv", "refresh"},
    {"how_to_config_after_send", "refresh"},
    {"get_reply_timeout", "20"},
    {"heroic_timeout", "30"},
    {"incoming_dir", "./incoming"},
    {"incoming_gui", "General Incoming"},
    {"incoming_perms", "0777"},
    {"initial_config_cmd", "H0"},
    {"max_receive_fax_rate", "9600"},
    {"max_send_fax_rate", "14400"},
    {"min_send_fax_rate", "4800"},
    {"no_blacklisting_cmd", ""},
    {"out_queue_num", "1"},
    {"out_queue_num_gui", "Server Outbox"},
    {"voice_script", "fodo_script"},
    {"receive_compression", "MH"},
    {"receive_quality_checking", "false"},
    {"refresh_cmds", ""},
    {"send_compression", "MR"},
    {"speaker_on", "until_connect"},
    {"speaker_volume", "low"},
    {"tattle_tale_full_config", "6"},
    {"tattle_tale_no_config", "11"},
    {"tattle_tale_refresh_config", "10"},
    {"tattle_tale_register", "S9"},
    {"tty_baud_rate", "19200"},
    {"unsupervised_dialing", "true"},
    {"usage", "ondrix"},
    {"mchannel_type", "remote"},
    {"modem_dial_prefix", ""},
    {"mchannel_remote_type", "brooktrout"},
    {"mchannel_remote_port", "10111"},
};

}  // namespace faxtray
