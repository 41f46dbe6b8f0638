#include "config/modem_list_file.h"

#include <gtest/gtest.h>

#include <cstring>

#include "config/info_file.h"
#include "config/modem_record.h"
#include "support/capture.h"

namespace faxtray {

static std::string value(const av_list_ptr &entry, const char *attr)
{
    const char *text = av_getv(entry.get(), attr);
    return text ? text : "none";
}

class ModemListFile : public testing::Test {
protected:
    ~ModemListFile() override { mi_close(); }
    int open(const std::string &content, FILE *error_stream = nullptr)
    {
        return mi_open(dir.write("MODEMS.info", content).c_str(), error_stream);
    }
    temp_dir dir;
    scoped_env home{"ONDRIXHOME", "/opt/fax"};
};

TEST_F(ModemListFile, GivesEveryLineAnAbsoluteIncomingDirectory)
{
    const char *devices[] = {"default", "ttyA", "ttyB", "ttyC", "ttyE", "ttyF"};
    trace_on trace;
    ASSERT_EQ(1, open("[default]\n\tincoming_root = /var/fax\n"
                      "[ttyA]\n\tusage = did ondrix_did_info\n\ttty_baud_rate = 2400\n"
                      "[ttyB]\n\tincoming_dir = b/./c\n\tusage =\n"
                      "[ttyC]\n\tincoming_dir = /srv//c/\n"
                      "[ttyD]\n\tincoming_dir = ../../../..\n"  // passed over by the walk
                      "[ttyE]\n\tincoming_dir = no blanks\n\tincoming_root = relative\n"
                      "[ttyF]\n\tincoming_dir = f\n\tincoming_root = /srv\n"));
    EXPECT_EQ(0, mi_error());
    for (const char *device : devices) {
        av_list_ptr entry(mi_get(nullptr));
        ASSERT_TRUE(entry);
        EXPECT_STREQ(device, entry->key);
        int32_t check_value = entry->check_value;
        info_set_check_value(entry.get());
        EXPECT_EQ(entry->check_value, check_value);
    }
    EXPECT_EQ(nullptr, mi_get(nullptr));
    EXPECT_EQ(0, mi_error());

    for (auto [device, path] : {std::pair("default", "/var/fax/incoming"),
                                {"ttyA", "/var/fax/incoming"},
                                {"ttyB", "/var/fax/b/c"},
                                {"ttyC", "/srv/c"},
                                {"ttyE", "/var/fax/incoming"},
                                {"ttyF", "/srv/f"}}) {
        EXPECT_EQ(path, value(av_list_ptr(mi_get(device)), "incoming_dir")) << device;
        EXPECT_EQ(path, value(av_list_ptr(mi_get_no_defaults(device)), "incoming_dir")) << device;
    }
    EXPECT_EQ("9600", value(av_list_ptr(mi_get("ttyA")), "tty_baud_rate"));
    EXPECT_EQ("none", value(av_list_ptr(mi_get_no_defaults("default")), "usage"));
    EXPECT_EQ("", value(av_list_ptr(mi_get("ttyB")), "usage"));
    EXPECT_EQ(nullptr, mi_get("ttya"));
    EXPECT_EQ(0, mi_error());
    EXPECT_EQ(nullptr, mi_get("ttyD"));
    EXPECT_EQ(1, mi_error());
    EXPECT_NE(std::string::npos, trace.text().find("_mi_fix: Invalid incoming_dir attribute in MODEMS.info "
                                                   "file for device [ttyE]: [no blanks]\n"));
}

TEST_F(ModemListFile, TakesTheHomeAsRootAndSaysWhatItMisses)
{
    scoped_env nowhere("ONDRIXHOME", (dir / "nowhere").c_str());
    capture_stderr err;
    ASSERT_EQ(1, mi_open(nullptr, stderr));
    EXPECT_EQ(2, mi_error());
    EXPECT_EQ((dir / "nowhere/incoming"), value(av_list_ptr(mi_get("default")), "incoming_dir"));
    EXPECT_EQ(nullptr, mi_get(nullptr));
    EXPECT_EQ(2, mi_error());
    EXPECT_EQ(0, mi_stale(nullptr));
    EXPECT_EQ(2, mi_error());

    ASSERT_EQ(1, open("[default]\n\tusage =\n[ttyA]\n\tusage =\n[ttyD]\n\tincoming_dir = ../../../../../..\n",
                      stderr));
    EXPECT_EQ("ondrix", value(av_list_ptr(mi_get("default")), "usage"));
    EXPECT_EQ("", value(av_list_ptr(mi_get("ttyA")), "usage"));
    EXPECT_EQ(nullptr, mi_get("ttyD"));
    EXPECT_EQ("mi_open: Can't find default file: [MODEMS.info].\n"
              "_mi_get: Modem info file not open.\n"
              "_mi_fix: Warning: null or missing usage value.\n"
              "_mi_fix: Can't create full path to incoming directory for device [ttyD].\n"
              "_mi_get: Internal failure: _mi_fix.\n",
              err.text());
}

TEST(ModemRecord, IsFilledFromTheDefaults)
{
    trace_on trace;
    av_list_ptr entry(av_new("ttyS07"));
    modem_record_t record;
    ASSERT_EQ(1, mi_init_modem_info(&record, entry.get()));
    EXPECT_STREQ("/dev/ttyS07", record.device);
    EXPECT_STREQ("./incoming", record.directory);
    EXPECT_STREQ("&FH0&D0X4S0=0S7=60", record.common_config.data());
    EXPECT_STREQ("S9", record.tattle_tale_register.data());
    EXPECT_STREQ("", record.modem_type.data());
    int numbers[] = {record.reservation,      record.out_queue,        record.fclass,
                     record.permissions,      record.max_receive_rate, record.max_send_rate,
                     record.min_send_rate,    record.line_speed,       record.receive_compression,
                     record.send_compression, record.heroic_timeout,   record.get_reply_timeout,
                     record.remote_port,      record.local_channel,    record.remote_channel};
    int expected[] = {3, 1, 0, 0777, 3, 5, 0, 14, 0, 1, 30, 20, -1, 7, 7};
    for (size_t i = 0; i < std::size(expected); i++)
        EXPECT_EQ(expected[i], numbers[i]) << i;
    EXPECT_FALSE(record.receive_quality_checking || record.hardware_flow_control);
    EXPECT_TRUE(record.unsupervised_dialing);
    EXPECT_EQ("receive_compression attribute not found. Using MH.\n"
              "send_compression attribute not found. Using MR.\n",
              trace.text());
}

// A device's entry of those settings, over the built-in defaults, as a record; null when refused.
static std::unique_ptr<modem_record_t> record_of(const char *settings, const char *device = "ttyA1")
{
    temp_dir dir;
    EXPECT_EQ(1, mi_open(dir.write("M.info", std::string("[") + device + "]\n" + settings).c_str(), stderr));
    av_list_ptr entry(mi_get(device));
    auto record = std::make_unique<modem_record_t>();
    if (!mi_init_modem_info(record.get(), entry.get()))
        record.reset();
    return record;
}

TEST(ModemRecord, TakesWhatTheSettingsSay)
{
    scoped_env home("ONDRIXHOME", "/opt/fax");
    for (auto [usage, code] : {std::pair("ondrix", 3),
                               {"ondrix_o", 1},
                               {"ondrix_i", 2},
                               {"ondrix_v", 6},
                               {"ondrix_vo", 7},
                               {"x ondrix_did_info", 8},
                               {"", 3},
                               {"Ondrix", -1}})
        EXPECT_EQ(code, mi_reservation(usage)) << usage;

    auto record = record_of("usage = ondrix_vo\nvoice_script = talk\ndev_root = /devices\nclass = 1,2.0 \n"
                            "hardware_flow_control = true\nunsupervised_dialing = FALSE\n"
                            "tty_baud_rate = 38400\nmax_receive_fax_rate = 2400\nincoming_perms = 0640\n"
                            "receive_compression = MR\nsend_compression = MH\nout_queue_num = 4\n"
                            "mchannel_local_channel = 5\nmodem_dial_prefix = 9,\n");
    ASSERT_TRUE(record);
    EXPECT_STREQ("/devices/ttyA1", record->device);
    EXPECT_STREQ("talk", record->directory);
    EXPECT_STREQ("9,", record->dial_prefix.data());
    EXPECT_TRUE(record->hardware_flow_control);
    EXPECT_FALSE(record->unsupervised_dialing);
    EXPECT_EQ(FCLASS_2_0, record->fclass);
    EXPECT_EQ(LINE_38400, record->line_speed);
    EXPECT_EQ(RATE_2400, record->max_receive_rate);
    EXPECT_EQ(RATE_4800, record->min_send_rate);
    EXPECT_EQ(0640, record->permissions);
    EXPECT_EQ(COMPRESSION_MR, record->receive_compression);
    EXPECT_EQ(COMPRESSION_MH, record->send_compression);
    EXPECT_EQ(4, record->out_queue);
    EXPECT_EQ(10111, record->remote_port);
    EXPECT_EQ(5, record->local_channel);
    EXPECT_EQ(1, record->remote_channel);
    EXPECT_STREQ("/dev/x/tty", record_of("", "/dev/x/tty")->device);
    mi_close();
}

TEST(ModemRecord, KeepsTheDefaultOfWhatIsInvalid)
{
    capture_stderr err;
    auto record = record_of("out_queue_num = one\nclass = 1\nincoming_perms = 888\nmax_receive_fax_rate = 1\n"
                            "max_send_fax_rate = 2\nmin_send_fax_rate = 3\ntty_baud_rate = 4\n"
                            "receive_compression = MMR\nsend_compression = x\nheroic_timeout = 5s\n");
    ASSERT_TRUE(record);
    EXPECT_EQ(30, record->heroic_timeout);
    EXPECT_FALSE(record_of("usage = Ondrix\n"));
    EXPECT_FALSE(record_of("usage = ondrix_v\nvoice_script =\n"));
    modem_record_t bare;
    av_list_ptr nameless(av_new(""));
    EXPECT_EQ(0, mi_init_modem_info(&bare, nameless.get()));
    av_list_ptr entry(av_new("a"));
    EXPECT_EQ(1, mi_init_modem_info(&bare, entry.get()));
    std::string said = err.text();
    EXPECT_EQ(0u, said.find("\nDialerd: Warning: Ignoring invalid modem queue: [one].\n"
                            "init_modem_info: Ignoring invalid class: [1].\n"
                            "init_modem_info: Ignoring invalid permissions: [888].\n"
                            "\nDialerd: Ignoring invalid max_receive_fax_rate value: [1].\n"
                            "\nDialerd: Ignoring invalid max_send_fax_rate value: [2].\n"
                            "\nDialerd: Ignoring invalid min_send_fax_rate value: [3].\n"
                            "\nDialerd: Ignoring invalid tty_baud_rate value: [4].\n"
                            "init_modem_info: Ignoring invalid receive compression: [MMR].\n"
                            "init_modem_info: Ignoring invalid send compression: [x].\n"
                            "init_modem_info: Ignoring invalid heroic_timeout value: [5s].\n"
                            "\nDialerd: Invalid modem reservation: [Ondrix].\n"
                            "\nDialerd warning: Null voice modem script declaration in file: [MODEMS.info]\n"
                            "init_modem_info: Null device name.\n"
                            "init_modem_info: Null common_config_string value.\n"))
        << said;
    EXPECT_EQ(std::string::npos, said.find("user_modem_config"));  // not required
    mi_close();
}

TEST(ModemRecord, FindsFaxClassesInAList)
{
    struct {
        const char *list, *fclass;
        int found;
    } rows[] = {
        {"1,2,2.0 ", "2.0", 1}, {"1", "2", 0}, {"(1, 2)", "2", 1}, {"class 2.0", "2", 0}, {"", "2", 0}};
    for (auto &row : rows) {
        std::string list = row.list;
        EXPECT_EQ(row.found, mi_is_fclass(list.data(), row.fclass)) << row.list;
    }
    trace_on trace;
    EXPECT_EQ(0, mi_is_fclass(nullptr, "2"));
    EXPECT_EQ("mi_is_fclass:  bad arg, fclass_string=(null), fclass=2.\n", trace.text());
}

TEST(ModemRecord, BuildsTheSpeakerCommand)
{
    struct {
        const char *on, *volume, *command, *traced;
    } rows[] = {
        {"always", "low", "M2L0", ""},
        {"Until_Connect", "HIGH", "M1L2", ""},
        {"never", "high", "M0", ""},
        {"always", "medium", "M2L1", ""},
        {"always", nullptr, "M2", "build_speaker_string: Missing speaker_volume value.\n"},
        {"always", "x", "M2", "build_speaker_string: Invalid speaker_volume value: [x].\n"},
        {"x", "low", "", "build_speaker_string: Invalid speaker_on value: [x].\n"},
        {nullptr, "low", "", "build_speaker_string: Null or missing speaker_on attribute.\n"},
    };
    for (auto &row : rows) {
        av_list_ptr entry(av_new("ttyA"));
        if (row.on)
            av_put(entry.get(), "speaker_on", row.on);
        if (row.volume)
            av_put(entry.get(), "speaker_volume", row.volume);
        trace_on trace;
        EXPECT_STREQ(row.command, build_speaker_string(entry.get()));
        EXPECT_EQ(row.traced, trace.text());
    }
}

}  // namespace faxtray
