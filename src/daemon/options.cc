// getopt splits the command line; which values count as missing is decided here: in "-M -U users" that of -M
// is, while getopt would take "-U" for it.
#include "daemon/options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "log/exception_log.h"
#include "util/settings.h"
#include "util/standard_options.h"
#include "util/version_id.h"

namespace faxtray {

static constexpr char Options[] = "DR:M:U:L:W:bd:fhil:";
static constexpr char value_options[] = "MURlWd";  // options that require an argument; -L may lack its own
static constexpr int32_t default_slop = 60;
static constexpr int start_up_failure = 10;  // exit status

void pusage(FILE *stream)
{
    fprintf(stream, "Faxtrayd version: %s.\n", SCCS_ID);
    fputs("Usage:\n", stream);
    // Kept: the stray "n"; installation scripts compare the usage text.
    fputs("faxtrayd [-Dbfhi] [-M modems] [-U users] [-d delay] [-l log-file]n\n", stream);
    fputs("Options:\n", stream);
    fputs("    -D            Debugging mode.\n", stream);
    fputs("    -M modems     Specify MODEMS.info file.\n", stream);
    fputs("    -U users      Specify USER_LIST.info file.\n", stream);
    fputs("    -b            Backward compatibility mode.\n", stream);
    fputs("    -d delay      Inbox update delay.\n", stream);
    fputs("    -f            Run in foreground.\n", stream);
    fputs("    -h            Display this message and exit.\n", stream);
    fputs("    -i            Force initialization of inbox state.\n", stream);
    fputs("    -l log-file   Specify log file.\n", stream);
}

// strchr would also find the terminator.
static bool is_one_of(const char *letters, int letter)
{
    return letter != '\0' && strchr(letters, letter) != nullptr;
}

// True when `text` begins with a number, as scanf's "%d" reads one, which leaves numbers out of int's range
// undefined. Here they become -1, which callers refuse.
static bool scan_number(const char *text, int32_t *number)
{
    char *end;
    errno = 0;
    const long n = strtol(text, &end, 10);
    *number = (errno != 0 || n > INT32_MAX || n < 0) ? -1 : static_cast<int32_t>(n);
    return end != text;
}

// Whether `value` is really the next option, so that the value of `letter` is missing. A negative delay is
// reported as a bad delay instead.
static bool is_missing(int letter, const char *value)
{
    int32_t number;
    return value[0] == '-' && !(letter == 'd' && scan_number(value, &number));
}

static void report_missing(int letter)
{
    switch (letter) {
    case 'M':
        fprintf(stderr, "%s: Missing arg for -M\n", Program);
        break;
    case 'U':
        fprintf(stderr, "%s: Missing arg for -U\n", Program);
        break;
    case 'R':
        fprintf(stderr, "%s: Missing arg for -R\n", Program);
        break;
    case 'W':
        fprintf(stderr, "%s: Missing arg for -W\n", Program);
        break;
    case 'd':
        fprintf(stderr, "%s: Missing arg for -d\n", Program);
        break;
    default:  // Kept: -l is called -p here, as in the manual page.
        fprintf(stderr, "%s: Missing arg for -p\n", Program);
        break;
    }
}

static c_string copy_value(const char *value)
{
    c_string copied(strdup(value));
    if (!copied)
        fprintf(stderr, "%s: strdup(%s): %s\n", Program, value, strerror(errno));
    return copied;
}

// Stores a copy of `value` in a path of util/settings; the last of several options counts.
static void set_path(char *&setting, const char *value, options_t &options)
{
    c_string copied = copy_value(value);
    if (!copied) {
        options.exit_status = 0;  // Kept: 0, where -l exits with 10; start scripts look at the status.
        return;
    }
    free(setting);
    setting = copied.release();
}

static void set_delay(const char *value)
{
    if (scan_number(value, &Update_slop) && Update_slop >= 0)
        return;
    fprintf(stderr, "%s: Bad delay: [%s].\n", Program, value);
    Update_slop = default_slop;
}

// Carries out one option; `value` is "" where there is none.
static void take_option(int letter, const char *value, options_t &options)
{
    switch (letter) {
    case 'D':
        Debug = 1;
        break;
    case 'M':
        set_path(modem_info, value, options);
        break;
    case 'U':
        set_path(user_info, value, options);
        break;
    case 'R':  // accepted from old start scripts and not used
        if (!copy_value(value))
            options.exit_status = 0;
        break;
    case 'L':
        snprintf(dvLog_callbacks, sizeof dvLog_callbacks, "%s", value[0] == '-' ? "" : value);
        break;
    case 'W':
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s", value);
        break;
    case 'b':
        Regd_challenged = 1;
        elog_toggle_notify(1);
        break;
    case 'd':
        set_delay(value);
        break;
    case 'f':
        options.foreground = true;
        break;
    case 'h':
        pusage(stdout);
        options.exit_status = 0;
        break;
    case 'V':  // --version only; the letter is as unknown as any other
        puts(version_text("faxtrayd").c_str());
        options.exit_status = 0;
        break;
    case 'i':  // accepted; there is no saved state to initialize
        break;
    case 'l':
        options.log_file = copy_value(value);
        if (!options.log_file)
            options.exit_status = start_up_failure;
        break;
    default:  // unknown: not fatal, so that a newer start script still starts an older daemon
        fprintf(stderr, "%s: Warning: %s may be out of date\n", Program, Program);
        break;
    }
}

options_t parse_options(int argc, char *argv[]) noexcept
{
    options_t options;
    opterr = 0;  // getopt prints nothing
    optind = 0;  // glibc: starts over, also amid a group of letters
    int letter;
    while (options.exit_status < 0 &&
           (letter = getopt_long(argc, argv, Options, help_and_version, nullptr)) != -1) {
        // getopt returns '?' both for an unknown letter and for a known one that lacks its argument.
        const bool cut_off = letter == '?' && (is_one_of(value_options, optopt) || optopt == 'L');
        if (cut_off)
            letter = optopt;
        const char *value = optarg ? optarg : "";

        // An empty value of these counts as the option not being there.
        const bool wants_value = is_one_of(value_options, letter);
        if (wants_value && (cut_off || is_missing(letter, value))) {
            report_missing(letter);
            options.exit_status = start_up_failure;
        } else if (!wants_value || value[0] != '\0') {
            take_option(letter, value, options);
        }
    }
    // Nothing is done by words: "faxtrayd stop" must not start a daemon.
    if (options.exit_status < 0 && optind < argc) {
        fprintf(stderr, "%s: Unknown argument: [%s].\n", Program, argv[optind]);
        pusage(stderr);
        options.exit_status = start_up_failure;
    }
    return options;
}

}  // namespace faxtray
