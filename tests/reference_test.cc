// Every input file under tests/data yields what the .ref beside it holds, messages and trace included.
#include <gtest/gtest.h>
#include <sys/param.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>

#include "config/attributes.h"
#include "config/info_file.h"
#include "config/modem_list_file.h"
#include "config/modem_record.h"
#include "config/munged_name.h"
#include "config/user_list_file.h"
#include "disk/file_names.h"
#include "support/capture.h"
#include "support/daemon.h"
#include "util/paths.h"
#include "util/short_hash.h"
#include "util/text.h"
#include "util/version_id.h"

namespace faxtray {

static std::string bracketed(const char *text)
{
    return text ? std::string("[") + text + "]" : "null";
}

static std::string owned(char *text)
{
    return bracketed(c_string(text).get());
}

static std::string pieces(const char *text)
{
    char **fields = nullptr;
    int count = split(text, ',', &fields);
    std::unique_ptr<char *, deleter<std::free>> owner(fields);
    std::string all;
    for (int i = 0; i <= count; i++)  // one past the last, which is null
        all += bracketed(fields[i]);
    return all;
}

static std::string inbox_of(const char *name, const char *root, const char *dir)
{
    av_list_ptr entry(av_new(name));
    for (auto [attr, value] : {std::pair("delivery_dir_root", root), {"delivery_dir", dir}})
        if (value)
            av_put(entry.get(), attr, value);
    const std::string path = owned(ui_inbox_path(entry.get()));
    return path + " error " + std::to_string(ui_error());
}

// Whether two names are ordered, and equal, as their keys are; then the sign of their order.
static std::string munged_order(const char *a, const char *b)
{
    int order = munged_strcmp(a, b);
    EXPECT_EQ(order == 0, equals_itself(a) && equals_itself(b) && munged_key(a) == munged_key(b)) << a << b;
    return order < 0 ? "<" : order > 0 ? ">" : "=";
}

// The handle of a value, and what that handle leads back to.
static std::string value_of(int attr, const char *value)
{
    const int handle = as_get_value_handle(attr, value);
    return std::to_string(handle) + " " + bracketed(as_get_value_string(attr, handle));
}

static std::string version_of(const char *id)
{
    char info[64];
    int length = rev_revinfo(id, info, sizeof info);
    return bracketed(length ? info : nullptr) + " module " + bracketed(rev_module(nullptr)) + " branch " +
           bracketed(rev_branch(nullptr)) + " time " + bracketed(rev_delta_time(nullptr));
}

// One call per line: its name and up to three arguments, each after a tab; \t and \n stand for those two.
static const struct {
    const char *name;
    std::string (*run)(char *a, char *b, char *c);
} calls[] = {
    {"mkpath", [](char *a, char *, char *) { return bracketed(mkpath(a).get()); }},
    {"fix_path", [](char *a, char *, char *) { return bracketed(fix_path(a).get()); }},
    {"basename", [](char *a, char *, char *) { return bracketed(basename(a)); }},
    {"dirname", [](char *a, char *, char *) { return bracketed(dirname(a)); }},
    {"split", [](char *a, char *, char *) { return pieces(a); }},
    {"strip", [](char *a, char *, char *) { return bracketed(strip_enclosing_whitespace(a)); }},
    {"strcasestr", [](char *a, char *b, char *) { return bracketed(strcasestr(a, b)); }},
    {"octal", [](char *a, char *, char *) { return std::to_string(octal_perms_to_int(a)); }},
    {"base_26", [](char *a, char *, char *) { return bracketed(int_to_base_26(std::stoi(a))); }},
    {"filter", [](char *a, char *b, char *) { return bracketed(posix_file_name_filter(a, b)); }},
    {"passwd", [](char *a, char *, char *) { return bracketed(passwd(a)); }},
    {"version", [](char *a, char *, char *) { return version_of(a); }},
    {"munged_strcmp", [](char *a, char *b, char *) { return munged_order(a, b); }},
    {"attribute", [](char *a, char *, char *) { return std::to_string(as_get_attr_handle(a)); }},
    {"name", [](char *a, char *, char *) { return bracketed(as_get_attr(std::stoi(a))); }},
    {"value", [](char *a, char *b, char *) { return value_of(as_get_attr_handle(a), b); }},
    {"inbox_path", [](char *a, char *b, char *c) { return inbox_of(a, b, c); }},
    {"mi_reservation", [](char *a, char *, char *) { return std::to_string(mi_reservation(a)); }},
    {"mi_is_fclass", [](char *a, char *b, char *) { return std::to_string(mi_is_fclass(a, b)); }},
};

static void run_calls(const std::string &path)
{
    std::istringstream lines(read_file(path));
    for (std::string line; std::getline(lines, line);) {
        std::string arguments[4];
        char *given[4] = {};
        for (size_t i = 0, from = 0, end; i < 4 && from <= line.size(); i++, from = end + 1) {
            end = std::min(line.find('\t', from), line.size());
            arguments[i] = line.substr(from, end - from);
            for (auto [escape, ch] : {std::pair("\\t", '\t'), {"\\n", '\n'}})
                for (size_t at; (at = arguments[i].find(escape)) != std::string::npos;)
                    arguments[i].replace(at, 2, 1, ch);
            given[i] = arguments[i].data();
        }
        trace_on trace;
        auto call = std::find_if(std::begin(calls), std::end(calls),
                                 [&](auto &row) { return arguments[0] == row.name; });
        ASSERT_NE(call, std::end(calls)) << line;
        const std::string result = call->run(given[1], given[2], given[3]);
        fprintf(stderr, "%s: %s\n%s", line.c_str(), result.c_str(), trace.text().c_str());
    }
}

// Prints every section, and writes it to `copy` unless that is null.
static void print_sections(const std::string &path, FILE *copy)
{
    av_list_t *defaults = nullptr, *none = nullptr;
    struct timespec mtime;
    FILE *file = info_open(path.c_str(), &defaults, &mtime, stderr);
    while (av_list_ptr list{info_get(file, defaults, strcmp, nullptr)}) {
        av_printf(stderr, list.get());
        fprintf(stderr, "check value: %d\n", list->check_value);
        if (copy)
            info_write(copy, list.get());
    }
    info_close(&file, &defaults, &none);
}

static void print_info(const std::string &path)
{
    temp_dir dir;
    const std::string written = dir / "written.info";
    print_sections(path, file_ptr(fopen(written.c_str(), "w")).get());
    fprintf(stderr, "--- written\n%s--- read back\n", read_file(written).c_str());
    print_sections(written, nullptr);
}

// An entry as its file has it, with the check value of what it is with the defaults.
static void print_entry(const av_list_ptr &entry, av_list_t *(*get_no_defaults)(const char *))
{
    fprintf(stderr, "\n--- check value with defaults: %d\n", entry->check_value);
    av_printf(stderr, av_list_ptr(get_no_defaults(entry->key)).get());
}

// What the file sets itself; the built-in defaults where it sets none but the directory that every line gets.
static void print_defaults(av_list_t *(*get)(const char *), av_list_t *(*get_no_defaults)(const char *))
{
    const av_list_ptr own(get_no_defaults("default"));
    const bool sets = own->nodes && (own->nodes->next || strcmp(own->nodes->attr, "incoming_dir") != 0);
    av_printf(stderr, sets ? own.get() : av_list_ptr(get("default")).get());
}

static void print_users(const std::string &path)
{
    EXPECT_EQ(ui_open(path.c_str(), stderr), 1);
    print_defaults(ui_get, ui_get_no_defaults);
    print_entry(av_list_ptr(ui_get("admin")), ui_get_no_defaults);
    while (av_list_ptr entry{ui_get(nullptr)}) {
        print_entry(entry, ui_get_no_defaults);
        fprintf(stderr, "inbox: %s\n", owned(ui_inbox_path(entry.get())).c_str());
    }
    ui_close();
}

static void print_record(const av_list_ptr &entry)
{
    auto record = std::make_unique<modem_record_t>();
    const modem_record_t &r = *record;
    fprintf(stderr, "--- record: %d\n", mi_init_modem_info(record.get(), entry.get()));
    fprintf(stderr, "%s in %s reserved %d queue %d class %d permissions %o\n", r.device, r.directory,
            r.reservation, r.out_queue, r.fclass, static_cast<unsigned>(r.permissions));
    fprintf(stderr, "rates %d %d %d speed %d compression %d %d\n", r.max_receive_rate, r.max_send_rate,
            r.min_send_rate, r.line_speed, r.receive_compression, r.send_compression);
    fprintf(stderr, "checking %d unsupervised %d flow %d timeouts %d %d remote %d %d %d\n",
            r.receive_quality_checking, r.unsupervised_dialing, r.hardware_flow_control, r.heroic_timeout,
            r.get_reply_timeout, r.remote_port, r.local_channel, r.remote_channel);
    for (const auto *text :
         {&r.modem_type, &r.common_config, &r.user_config, &r.refresh, &r.initial_config, &r.no_blacklisting,
          &r.dial_prefix, &r.config_after_receive, &r.config_after_send, &r.tattle_tale_full_config,
          &r.tattle_tale_no_config, &r.tattle_tale_refresh_config, &r.tattle_tale_register, &r.channel_type,
          &r.remote_type, &r.remote_host})
        fprintf(stderr, "[%s]", text->data());
    fprintf(stderr, "\nspeaker %s\n", build_speaker_string(entry.get()));
}

static void print_modems(const std::string &path)
{
    trace_on trace;
    EXPECT_EQ(mi_open(path.c_str(), stderr), 1);
    print_defaults(mi_get, mi_get_no_defaults);
    mi_rewind();
    while (av_list_ptr entry{mi_get(nullptr)}) {
        print_entry(entry, mi_get_no_defaults);
        print_record(entry);
    }
    fprintf(stderr, "--- trace\n%s", trace.text().c_str());
    mi_close();
}

// What faxtray-check says of a user list and the fax lines beside it, NAME.modems, if there are any.
static void print_check(const std::string &path)
{
    const std::string modems = path.substr(0, path.size() - strlen("info")) + "modems";
    const temp_dir dir;
    const std::string command = "cd " + (dir / "") + " && install -m 600 " + path +
                                " USER_LIST.info && install -m 600 " + modems +
                                " MODEMS.info 2>/dev/null || ln -s /dev/null MODEMS.info; " BINARIES
                                "/faxtray-check --lists -U USER_LIST.info -M MODEMS.info; echo exit $?";
    fputs(run_shell(command).output.c_str(), stderr);
}

TEST(Reference, EveryFileGivesWhatItsRefSays)
{
    scoped_env home("ONDRIXHOME", "/opt/fax");
    char here[MAXPATHLEN];  // shown as HERE
    ASSERT_TRUE(cv_getcwd(here, sizeof here));
    for (auto [folder, print] : {std::pair("calls", &run_calls),
                                 {"info", print_info},
                                 {"users", print_users},
                                 {"modems", print_modems},
                                 {"check", print_check}}) {
        for (const auto &file : std::filesystem::directory_iterator(std::string(TEST_DATA "/") + folder)) {
            std::filesystem::path path = file.path();
            if (path.extension() == ".ref" || path.extension() == ".modems")
                continue;
            capture_stderr err;
            print(path);
            std::string said = err.text();
            for (size_t at; (at = said.find(here)) != std::string::npos;)
                said.replace(at, strlen(here), "HERE");
            path.replace_extension(".ref");
            EXPECT_EQ(read_file(path), said) << file.path();
        }
    }
}

}  // namespace faxtray
