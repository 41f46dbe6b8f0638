// TRACES has one line a program: whether it traces, where to, and whether an existing trace file is continued
// or emptied. It is small and rarely read, so a line is taken apart again at each reading.
#include "util/trace.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "util/clock_text.h"
#include "util/file_lock.h"
#include "util/owned.h"
#include "util/text.h"

namespace faxtray {

static int Debug;             // TRACECONFIG was set: this module reports its progress on standard output
static int Initted;           // tr_init has named the directories
static int Trace_on;          // a stream is open
static int Trace_toggle = 1;  // 0 mutes an open stream
static FILE *Trace_fp;        // the stream: a file opened here, standard output or standard error

static char Trace_work_dir[MAXPATHLEN];         // where trace files without a path are made
static char Trace_exec_dir[MAXPATHLEN];         // the second place to look for TRACES
static char Trace_filename[MAXPATHLEN];         // the stream's path, or "stdout" or "stderr"
static char Trace_config_filename[MAXPATHLEN];  // the TRACES last found

static char last_config[MAXPATHLEN];  // the TRACES last read
static time_t last_update;            // its mtime when it was read

// The output word of the line that last switched tracing on, and the first character of its mode: for whoever
// looks at the process with a debugger. Nothing here reads them.
static char last_output[256];
static char last_mode;

static constexpr size_t buffer_size = 8192;
static c_string file_buffer;                   // of the open trace file
static char standard_buffers[2][buffer_size];  // of standard output and standard error, which stay open

// Writing

bool tr_writing()
{
    return Trace_on && Trace_toggle && Trace_fp;
}

static struct tm local_time()
{
    time_t now = time(nullptr);
    struct tm parts = {};
    localtime_r(&now, &parts);
    return parts;
}

void trace_print_time()
{
    if (!tr_writing())
        return;
    struct tm now = local_time();
    fprintf(Trace_fp, "%02d:%02d:%02d ", now.tm_hour, now.tm_min, now.tm_sec);
}

void trace_print_date()
{
    if (!tr_writing())
        return;
    struct tm now = local_time();
    fprintf(Trace_fp, "%2d-%s-%04d ", now.tm_mday, months[now.tm_mon], now.tm_year + 1900);
}

void trprintf(const char *format, ...)
{
    if (!tr_writing())
        return;
    int error = errno;
    const appending between_hosts(fileno(Trace_fp));
    trace_print_time();
    va_list args;
    va_start(args, format);
    vfprintf(Trace_fp, format, args);
    va_end(args);
    errno = error;
}

void tr_puts(const char *text)
{
    if (!tr_writing())
        return;
    const appending between_hosts(fileno(Trace_fp));
    trace_print_time();
    fputs(text, Trace_fp);
}

void tr_write(const char *bytes, size_t n)
{
    if (tr_writing())
        fwrite(bytes, 1, n, Trace_fp);
}

int tr_putc(int ch)
{
    return tr_writing() ? putc(ch, Trace_fp) : ch;
}

void trflush()
{
    if (Trace_on && Trace_fp)
        fflush(Trace_fp);
}

int tr_set_toggle_on(int flag)
{
    Trace_toggle = flag;
    return 1;
}

int tr_is_toggle_on()
{
    return Trace_toggle;
}

int tr_is_trace_on()
{
    return Trace_on;
}

FILE *tr_get_file_pointer()
{
    return Trace_fp;
}

// Starting and ending

static bool is_standard(FILE *stream)
{
    return stream == stdout || stream == stderr;
}

// Forgets the stream, and closes it when it is a file.
static void close_stream()
{
    if (Trace_fp && !is_standard(Trace_fp)) {
        fclose(Trace_fp);
        file_buffer.reset();
    }
    Trace_fp = nullptr;
}

int tr_init(const char *exec_dir, const char *work_dir)
{
    if (Initted || Trace_on)
        return 0;
    if (!exec_dir || !*exec_dir || !work_dir || !*work_dir)
        return 0;
    if (strlen(exec_dir) >= sizeof Trace_exec_dir || strlen(work_dir) >= sizeof Trace_work_dir)
        return 0;
    tr_close();
    snprintf(Trace_work_dir, sizeof Trace_work_dir, "%s", work_dir);
    snprintf(Trace_exec_dir, sizeof Trace_exec_dir, "%s", exec_dir);
    Initted = 1;
    return 1;
}

int tr_close()
{
    Trace_work_dir[0] = Trace_exec_dir[0] = Trace_filename[0] = Trace_config_filename[0] = '\0';
    Initted = 0;
    Trace_toggle = 1;
    close_stream();
    return 1;
}

// Reading TRACES

// One word of a line, cut at 127 characters.
using word_t = char[128];

struct config_line {
    word_t program, on_off, output, mode;
};

// What is read of a line of TRACES, its line feed and a zero included.
static constexpr size_t line_size = 1024;

// With TRACECONFIG set these are printed as numbers, from 0.
enum config_result { FOUND, NO_CONFIG, NO_LINE, UNCHANGED };

// Copies the next word at `p` into `word`, "" at the end of the line, and returns what follows it.
static const char *next_word(const char *p, word_t &word)
{
    while (isspace(static_cast<unsigned char>(*p)))
        p++;
    size_t n = 0;
    for (; *p && !isspace(static_cast<unsigned char>(*p)); p++)
        if (n < sizeof word - 1)
            word[n++] = *p;
    word[n] = '\0';
    return p;
}

// Reads a line without its last character. Kept: whatever that is, so a last line without a newline loses a
// character of its text, as TRACES(5) warns administrators. The rest of a line that is too long is skipped,
// so that it is not taken for a line. Not by fgets(), which does not tell where a line with a zero in it
// ends.
static bool read_line(FILE *in, char (&line)[line_size])
{
    size_t n = 0;
    int ch;
    do {
        ch = getc(in);
        if (ch != EOF && n < sizeof line - 1)
            line[n++] = static_cast<char>(ch);
    } while (ch != EOF && ch != '\n');
    if (n == 0)
        return false;
    line[n - 1] = '\0';
    return true;
}

// Finds the first line for the program `name`; the words it lacks are empty.
static bool find_line(FILE *in, const char *name, config_line &found)
{
    char line[line_size] = "";
    while (read_line(in, line)) {
        if (strlen(line) < 2 || line[0] == '#')
            continue;
        const char *p = next_word(line, found.program);
        p = next_word(p, found.on_off);
        p = next_word(p, found.output);
        next_word(p, found.mode);
        if (strcmp(found.program, name) == 0) {
            if (Debug)
                printf("found trace config line '%s'\n", line);
            return true;
        }
    }
    if (Debug)
        printf("no trace config line for '%s'\n", name);
    return false;
}

// If "dir/TRACES", or "TRACES" for a null `dir`, exists, stores its path in Trace_config_filename and its
// status in `st`.
static bool look_for_config(const char *dir, struct stat &st)
{
    char path[MAXPATHLEN];
    int n = snprintf(path, sizeof path, "%s%sTRACES", dir ? dir : "", dir ? "/" : "");
    if (n < 0 || n >= static_cast<int>(sizeof path))
        return false;
    if (Debug)
        printf("looking for file '%s'\n", path);
    if (stat(path, &st) != 0)
        return false;
    snprintf(Trace_config_filename, sizeof Trace_config_filename, "%s", path);
    return true;
}

static bool find_config(struct stat &st)
{
    const char *home = getenv("ONDRIXHOME");
    if ((home && look_for_config(home, st)) || look_for_config(Trace_exec_dir, st) ||
        look_for_config(nullptr, st))
        return true;
    if (Debug)
        printf("couldn't find a TRACES file");
    return false;
}

// A "-" holds the place of a word left out, so that a later one can be given.
static void set_default(word_t &word, const char *value)
{
    if (!word[0] || strcmp(word, "-") == 0)
        snprintf(word, sizeof word, "%s", value);
}

// Reads the line for `name` into `line`, its defaults filled in, unless TRACES is the one read before.
static config_result check_trace_config_file(const char *name, config_line &line)
{
    if (getenv("TRACECONFIG")) {
        Debug = 1;
        printf("check_trace_config_file('%s')\n", name);
    }
    struct stat st;
    if (!find_config(st)) {
        last_config[0] = '\0';  // when it returns it is read, whatever its time
        last_update = 0;
        return NO_CONFIG;
    }
    if (strcmp(Trace_config_filename, last_config) == 0 && last_update >= st.st_mtime)
        return UNCHANGED;

    // Opening a pipe would wait for whoever writes to it, and some devices never end.
    file_ptr in(S_ISREG(st.st_mode) ? fopen(Trace_config_filename, "re") : nullptr);
    if (!in)
        return NO_CONFIG;
    snprintf(last_config, sizeof last_config, "%s", Trace_config_filename);
    last_update = st.st_mtime;
    if (!find_line(in.get(), name, line))
        return NO_LINE;
    set_default(line.on_off, "yes");
    set_default(line.output, name);
    set_default(line.mode, "append");
    return FOUND;
}

// Switching

static int switch_off(const char *shown)
{
    // Kept: "rescaning"; it is also the last line of traces that people keep.
    static constexpr char closing[] = "open_trace_file: Closing trace file before rescaning\n";
    if (Trace_fp && !is_standard(Trace_fp)) {
        if (Debug)
            fputs(closing, stdout);
        tr_puts(closing);
    }
    close_stream();
    Trace_on = 0;
    Trace_toggle = 1;
    Trace_filename[0] = '\0';
    if (Debug)
        printf("open_trace_file(%s): turn off\n", shown);
    return 1;
}

// By whole lines, so that those of a child process and ours do not mix within a line, and so that a crash
// loses none.
static void set_line_buffered(FILE *stream)
{
    if (is_standard(stream)) {
        fflush(stream);
        setvbuf(stream, standard_buffers[stream == stderr], _IOLBF, buffer_size);
        return;
    }
    file_buffer.reset(static_cast<char *>(malloc(buffer_size)));
    setvbuf(stream, file_buffer.get(), _IOLBF, buffer_size);  // without memory, stdio's own buffer
}

// Only the owner may read what is made here: traces name users, senders and files. Appending also to a file
// that was emptied: another host may trace into it.
static FILE *open_file(const char *path, bool overwrite)
{
    unique_fd fd(open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (overwrite ? O_TRUNC : 0), 0600));
    FILE *file = fd ? fdopen(fd.get(), overwrite ? "w" : "a") : nullptr;
    if (file)
        (void)fd.release();
    return file;
}

// Opens the stream that `output` names, in place of the present one. `mode` is the first character of its
// mode. 1, or 0 with a message; tracing is then off.
static int switch_on(const char *shown, const char *output, char mode)
{
    snprintf(last_output, sizeof last_output, "%s", output);
    last_mode = mode;
    Trace_on = 0;
    Trace_toggle = 1;

    FILE *standard = strcmp(output, "stdout") == 0   ? stdout
                     : strcmp(output, "stderr") == 0 ? stderr
                                                     : nullptr;
    char path[2 * MAXPATHLEN];  // holds the directory, "trace_" and any word
    if (standard || output[0] == '/')
        snprintf(path, sizeof path, "%s", output);
    else
        snprintf(path, sizeof path, "%s/trace_%s", Trace_work_dir, output);

    // Kept: when TRACES names the same file again, it is opened a second time and its first stream stays
    // open: whoever has it from tr_get_file_pointer() may still write to it. Another file's stream is closed.
    // Kept too: that, spelt "rescaning", is said on standard output only. Tracing was switched off above, so
    // the file that is closed does not get the line with which switch_off() ends it.
    if (Trace_fp && !is_standard(Trace_fp)) {
        if (strcmp(path, Trace_filename) == 0) {
            fflush(Trace_fp);
            setvbuf(Trace_fp, nullptr, _IONBF, 0);  // its buffer is about to be freed
        } else {
            if (Debug)
                fputs("open_trace_file: Closing old trace file before rescaning\n", stdout);
            close_stream();
        }
    }

    bool overwrite = mode == 'O' || mode == 'o';
    Trace_fp = standard ? standard : open_file(path, overwrite);
    int error = errno;
    snprintf(Trace_filename, sizeof Trace_filename, "%.*s", MAXPATHLEN - 1, path);
    if (!Trace_fp) {
        fprintf(stderr, "open_trace_file:  Couldn't open trace file '%s', using stdout, errno=%d\n", path,
                error);
        return 0;
    }
    Trace_on = 1;
    set_line_buffered(Trace_fp);
    if (Debug) {
        printf("open_trace_file(%s): Trace_on\n", shown);
        printf("trace file is '%s'\n", Trace_filename);
    }
    return 1;
}

// The program's name as messages and file names show it: a path with "_" for each "/", the first one dropped.
// Null without memory.
static c_string display_name(const char *name)
{
    c_string shown(strdup(name));
    if (shown && strchr(name, '/')) {
        convert_char(shown.get(), '/', '_');
        if (shown.get()[0] == '_')
            memmove(shown.get(), shown.get() + 1, strlen(shown.get()));
    }
    return shown;
}

int open_trace_file(const char *name)
{
    if (!Initted) {
        fprintf(stderr, "open_trace_file:  Traces have not been properly initialized\n");
        return 0;
    }
    c_string owned = display_name(name);
    const char *shown = owned ? owned.get() : name;
    if (Debug)
        printf("open_trace_file(%s)\n", shown);

    config_line line = {};
    config_result ret = check_trace_config_file(name, line);
    if (Debug)
        printf("open_trace_file(%s): ret=%d\n", shown, ret);

    if (ret == UNCHANGED) {
        // Even when the trace file could not be opened: an administrator touches TRACES to have that tried
        // again.
        if (Debug)
            printf("open_trace_file(%s): no change\n", shown);
        return 1;
    }
    if (ret != FOUND)
        return Trace_on ? switch_off(shown) : 1;
    if (Debug)
        printf("open_trace_file(%s): 1 on_off=\"%s\"\n", shown, line.on_off);
    if (strcasecmp(line.on_off, "off") == 0)
        return switch_off(shown);
    // A program started by its path has that path as the default output: it traces into the work directory,
    // not over itself.
    const bool is_path = strchr(line.output, '/') && strchr(name, '/');
    return switch_on(shown, is_path ? shown : line.output, line.mode[0]);
}

}  // namespace faxtray
