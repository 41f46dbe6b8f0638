// The command line: which letters there are, what each sets, and what is said of a wrong one.
#include "daemon/options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "log/exception_log.h"
#include "util/settings.h"
#include "util/version_id.h"

namespace faxtray {

static constexpr char Options[] = "DR:M:U:L:W:bd:fhil:";
static constexpr char Value_options[] = "MURlWd";  // those that refuse to go without their value
static constexpr int32_t Default_slop = 60;
static constexpr int Start_up_failure = 10;

void pusage(FILE *stream)
{
    fprintf(stream, "Faxtrayd version: %s.\n", SCCS_ID);
    fputs("Usage:\n", stream);
    // Kept: the stray "n"; clients of the usage text compare it.
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

static bool is_one_of(const char *letters, int letter)
{
    return letter != '\0' && strchr(letters, letter) != nullptr;
}

// True when `text` begins with a number, as scanf's "%d" reads one; out of int's range counts as
// negative, so that it is refused.
static bool scan_number(const char *text, int32_t *number)
{
    char *end;
    errno = 0;
    const long n = strtol(text, &end, 10);
    *number = (errno != 0 || n > INT32_MAX || n < 0) ? -1 : static_cast<int32_t>(n);
    return end != text;
}

// A value that looks like the next option is one left out, but for a negative delay.
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
    default:  // Kept: -l is called -p here.
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

// Replaces a path of util/settings by a copy of `value`.
static void set_path(char *&setting, const char *value, options_t &options)
{
    c_string copied = copy_value(value);
    if (!copied) {
        options.exit_status = 0;  // Kept: 0, where -l gives 10.
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
    Update_slop = Default_slop;
}

// What one option sets; `value` is "" where there is none.
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
    case 'R':  // accepted for old start scripts, and not used
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
    case 'i':
        break;
    case 'l':
        options.log_file = copy_value(value);
        if (!options.log_file)
            options.exit_status = Start_up_failure;
        break;
    default:
        fprintf(stderr, "%s: Warning: %s may be out of date\n", Program, Program);
        break;
    }
}

options_t parse_options(int argc, char *argv[]) noexcept
{
    options_t options;
    opterr = 0;
    optind = 0;  // glibc: start afresh
    int letter;
    while (options.exit_status < 0 && (letter = getopt(argc, argv, Options)) != -1) {
        // getopt says "?" of an unknown letter and of a known one whose value the line ends without.
        const bool cut_off = letter == '?' && (is_one_of(Value_options, optopt) || optopt == 'L');
        if (cut_off)
            letter = optopt;
        const char *value = optarg ? optarg : "";

        const bool wants_value = is_one_of(Value_options, letter);
        if (wants_value && (cut_off || is_missing(letter, value))) {
            report_missing(letter);
            options.exit_status = Start_up_failure;
        } else if (!wants_value || value[0] != '\0') {
            take_option(letter, value, options);
        }
    }
    return options;
}

}  // namespace faxtray
