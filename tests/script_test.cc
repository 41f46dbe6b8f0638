// Files copied, moved, published, noted and removed, and what is traced: the scripts
// tests/data/scripts/NAME.in, and in the NAME.ref beside each what the calls return, print and trace and what
// is on disk afterwards.
//
// "== title" begins a scene: a process of its own, in a new directory with a work directory "work" and a
// directory "other" on another file system, tracing to standard output. A step is a word and up to three
// arguments, in which
// "{n*20}" is a text twenty times, "\s", "\n" and "\x80" are a blank, a line feed and the byte of that
// number, MONDD is the month and day of short names, OURPID the process. Steps between "process" and "end"
// run in a child, which ends without cleaning up.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/param.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "disk/dir_list.h"
#include "disk/file_names.h"
#include "disk/files.h"
#include "disk/publish.h"
#include "disk/whole_file.h"
#include "disk/work_note.h"
#include "support/capture.h"
#include "support/refuse_call.h"
#include "util/clock_text.h"
#include "util/command_output.h"
#include "util/paths.h"
#include "util/process_tag.h"
#include "util/settings.h"
#include "util/trace.h"

namespace faxtray {

namespace fs = std::filesystem;

static char named[2 * MAXPATHLEN];  // by the call: the path that it changed or made

static char *name_it(const char *path)
{
    snprintf(named, sizeof named, "%s", path);
    return named;
}

static int name_made(const c_string &path)
{
    return path ? name_it(path.get()), 1 : 0;
}

// Begins a file and keeps it. `how` is "r" to replace the target, or a signal that comes in between.
static int write_whole(const char *target, const char *content, const char *how)
{
    whole_file file;
    return file.begin(target, *how == 'r') && file.write(content, strlen(content)) && raise(atoi(how)) == 0 &&
           file.keep();
}

static int list_names(const char *directory, const char *pattern)
{
    const std::unique_ptr<dir_list_t, deleter<dir_close>> names(dir_open(directory));
    std::set<std::string> found;
    for (const char *name = names ? dir_grep(names.get(), pattern) : nullptr; name;
         name = dir_grep(names.get(), ""))
        found.insert(name);
    for (const std::string &name : found)
        printf("    %s\n", name.c_str());
    return dir_rewind(names.get()) && dir_grep(names.get(), "^[.]$") && !dir_grep(names.get(), "(");
}

// What is printed: the result, then `named` if it was set.
static const std::map<std::string, int (*)(const char *a, const char *b, const char *c)> calls = {
    {"copy", [](auto a, auto b, auto) { return copy(a, b); }},
    {"copy_new", [](auto a, auto b, auto) { return copy_new(a, b); }},
    {"copy_staged", [](auto a, auto b, auto) { return static_cast<int>(bool(copy_staged(a, b, named))); }},
    {"cv_move", [](auto a, auto b, auto) { return cv_move(a, b); }},
    {"move_new", [](auto a, auto b, auto) { return move_new(a, b); }},
    {"rename_new", [](auto a, auto b, auto) { return rename_new(a, b) ? errno : 0; }},
    {"publish", [](auto a, auto b, auto c) { return publish(a, name_it(b), *c == 'd'); }},
    {"dos_name",
     [](auto a, auto b, auto) { return build_unique_DOS_name(name_it(a), *b ? b : nullptr) ? 1 : errno; }},
    {"unique_file",
     [](auto a, auto, auto) { return static_cast<int>(bool(unique_fd(unique_file(a, named)))); }},
    {"write_whole", [](auto a, auto b, auto c) { return write_whole(a, b, c); }},
    {"list_names", [](auto a, auto b, auto) { return list_names(a, b); }},
    {"note_begin", [](auto, auto, auto) { return note_begin(); }},
    {"mkpath", [](auto a, auto, auto) { return name_made(mkpath(a)); }},
    {"fix_path", [](auto a, auto, auto) { return name_made(fix_path(a)); }},
    {"find_file", [](auto a, auto, auto) { return name_made(find_file(a)); }},
    {"find_executable", [](auto a, auto, auto) { return name_made(find_executable(a)); }},
    {"open_trace_file", [](auto a, auto, auto) { return open_trace_file(a); }},
    {"tr_init", [](auto a, auto b, auto) { return tr_init(a, b); }},
    {"tr_close", [](auto, auto, auto) { return tr_close(); }},
    {"tr_is_trace_on", [](auto, auto, auto) { return tr_is_trace_on(); }},
    {"tr_putc", [](auto a, auto, auto) { return tr_putc(*a); }},
    // with what errno was before
    {"trprintf", [](auto a, auto, auto) { return errno = 77, trprintf("%s\n", a), errno; }},
};

static bool full;  // whether calls find a disk on which no file grows past two blocks

static void limit_files(rlim_t size)
{
    const struct rlimit limit = {size, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &limit);
}

static void edit_notes(const char *pattern, const char *replacement)
{
    for (const auto &note : fs::directory_iterator("work")) {
        const std::string text = read_file(note.path());
        std::ofstream(note.path()) << std::regex_replace(text, std::regex(pattern), replacement);
    }
}

static const std::map<std::string, void (*)()> refusals = {
    {"renameat2", [] { refuse_call(SYS_renameat2, EINVAL); }},
    {"link", [] { refuse_call(SYS_link, EPERM); }},
    {"unlink", [] { refuse_call(SYS_unlink, EIO); }},
    {"fsync", [] { refuse_call(SYS_fsync, EIO); }},
    {"getrandom", [] { refuse_call(SYS_getrandom, ENOSYS); }},
    {"broken_directories", [] { refuse_call(SYS_openat, EIO, O_DIRECTORY); }},
    {"drop_boxes", [] { refuse_call(SYS_openat, EACCES, O_DIRECTORY); }},
};

// Cuts the one note there is at every length, appends `after`, and says with what lengths recovery removes
// `file`.
static void recover_torn(const char *file, const char *after)
{
    const fs::path path = *fs::directory_iterator("work");
    const std::string note = read_file(path);
    for (size_t left = 0; left <= note.size(); left++) {
        std::ofstream(path) << note.substr(0, note.size() - left) << after;
        std::ofstream(file) << "text";
        note_recover();
        if (!fs::exists(file))
            printf("    removed without the last %zu bytes\n", left);
    }
}

// Each file later than the one before.
static void make_file(const char *name, const char *content, const char *mode)
{
    static time_t mtime = 1000000000;
    std::ofstream(name) << content;
    set_mtime(name, mtime++);
    chmod(name, *mode ? static_cast<mode_t>(std::stoi(mode, nullptr, 8)) : 0644);
}

// A line for each file: its mode, names and content.
static void list_files(const fs::path &directory)
{
    for (const fs::path &path : std::set<fs::path>(fs::directory_iterator(directory), {})) {
        struct stat st;
        lstat(path.c_str(), &st);
        const std::string content = S_ISREG(st.st_mode) ? read_file(path) : "no file";
        if (!fs::is_directory(path))
            printf("    %03o %s: %s\n", st.st_mode & 07777U, printable(path.lexically_normal()).c_str(),
                   content.c_str());
        else if (!S_ISLNK(st.st_mode) || path == "./other")
            list_files(path);
    }
}

static const std::map<std::string, void (*)(const char *a, const char *b, const char *c)> others = {
    {"file", make_file},
    {"dir", [](auto a, auto, auto) { mkdir(a, 0755); }},
    {"fifo", [](auto a, auto, auto) { mkfifo(a, 0600); }},
    {"link", [](auto a, auto b, auto) { fs::create_hard_link(a, b); }},
    {"symlink", [](auto a, auto b, auto) { fs::create_symlink(a, b); }},
    {"rename", [](auto a, auto b, auto) { fs::rename(a, b); }},
    {"chown", [](auto a, auto, auto) { chown(a, 65534, 65534) == 0 ? void() : abort(); }},
    {"recover_torn", [](auto a, auto b, auto) { recover_torn(a, b); }},
    {"take_note", [](auto a, auto, auto) { fs::rename(*fs::directory_iterator("work"), a); }},
    {"umask", [](auto a, auto, auto) { umask(static_cast<mode_t>(std::stoi(a, nullptr, 8))); }},
    {"setenv", [](auto a, auto b, auto) { setenv(a, b, 1); }},
    {"disk_full", [](auto, auto, auto) { full = true; }},
    {"edit_notes", [](auto a, auto b, auto) { edit_notes(a, b); }},
    {"refuse", [](auto a, auto, auto) { refusals.at(a)(); }},
    {"list", [](auto, auto, auto) { list_files("."); }},
    {"tr_puts", [](auto a, auto, auto) { tr_puts(a); }},
    {"trace_print_date", [](auto, auto, auto) { trace_print_date(); }},
    {"tr_set_toggle_on", [](auto a, auto, auto) { tr_set_toggle_on(atoi(a)); }},
    {"note_end", [](auto, auto, auto) { note_end(); }},
    {"note_recover", [](auto, auto, auto) { note_recover(); }},
    {"noted_files", [](auto, auto, auto) { noted_files(); }},
    {"age", [](auto a, auto,
               auto) { fs::last_write_time(a, fs::file_time_type::clock::now() - std::chrono::hours(25)); }},
    {"note_will_make", [](auto a, auto, auto) { note_will_make(a); }},
};

// The stem of short names, which scripts and references call MONDD.
static std::string today()
{
    const std::string now = cv_ctime(nullptr);
    return static_cast<char>(tolower(now[4])) + now.substr(5, 2) + (now[8] == ' ' ? '0' : now[8]) + now[9];
}

static std::string expanded(std::string word)
{
    for (auto [name, value] :
         {std::pair("MONDD", today()), {"OURPID", process_tag()}, {R"(\\s)", " "}, {R"(\\n)", "\n"}})
        word = std::regex_replace(word, std::regex(name), value);
    static const std::regex special("\\{(.*)\\*([0-9]+)\\}|\\\\x(..)");
    for (std::smatch found; std::regex_search(word, found, special);) {
        std::string text;
        for (int n = found[2].matched ? std::stoi(found[2]) : 0; n > 0; n--)
            text += found[1];
        if (found[3].matched)
            text = static_cast<char>(std::stoi(found[3], nullptr, 16));
        word = found.prefix().str() + text + found.suffix().str();
    }
    return word;
}

static void run(std::istringstream &lines);

// The steps up to "end" in a child, which ends without note_end().
static void run_process(std::istringstream &lines)
{
    int status = 0;
    const pid_t child = fork();
    if (child == 0) {
        run(lines);
        fflush(stdout);
        _exit(0);
    }
    for (std::string line; line != "end" && std::getline(lines, line);)
        ;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        printf("    ended by signal %d\n", WTERMSIG(status));
}

static void run(std::istringstream &lines)
{
    for (std::string line; std::getline(lines, line) && line != "end";) {
        std::istringstream words(line);
        std::string step, a, b, c;
        words >> step >> a >> b >> c;
        a = expanded(a), b = expanded(b), c = expanded(c), *named = '\0';
        printf("%s\n", line.c_str());
        fflush(stdout);
        if (step == "process")
            run_process(lines);
        else if (const auto other = others.find(step); other != others.end())
            other->second(a.c_str(), b.c_str(), c.c_str());
        else if (!step.empty() && step != "==") {
            limit_files(full ? 16384 : RLIM_INFINITY);
            const int result = calls.at(step)(a.c_str(), b.c_str(), c.c_str());
            limit_files(RLIM_INFINITY);
            printf("    %d%s%s\n", result, *named ? " " : "", named);
        }
        fflush(stdout);
    }
}

// `text` with runs of more than 40 of a character as in a script: "{n*250}".
static std::string shortened(const std::string &text)
{
    std::string result;
    for (size_t at = 0, end; at < text.size(); at = end) {
        end = std::min(text.find_first_not_of(text[at], at), text.size());
        result += end - at > 40 ? std::string("{") + text[at] + "*" + std::to_string(end - at) + "}"
                                : text.substr(at, end - at);
    }
    return result;
}

// What the scene prints, with what differs from run to run made regular: times, process ids, dates and drawn
// names.
static std::string played(const std::string &scene)
{
    temp_dir here;
    scoped_env shm("TMPDIR", "/dev/shm");
    temp_dir other;
    capture_stdout printed;
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        fs::current_path(here.path());
        fs::create_directory("work");
        fs::create_directory_symlink(other.path(), "other");
        umask(022);
        snprintf(dvWork_dir, sizeof dvWork_dir, "work");
        program_invocation_short_name = const_cast<char *>("command");
        setenv("ONDRIXHOME", (here / "work").c_str(), 1);
        make_file("work/TRACES", "test on stdout\n", "");
        if (!tr_init("work", "work") || !open_trace_file("test") || !fs::remove("work/TRACES"))
            abort();
        std::istringstream lines(scene);
        run(lines);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::string text = printed.text();
    using regular_t = std::pair<std::string, const char *>;
    for (const auto &[pattern, regular] :
         {regular_t("[0-9]{2}:[0-9]{2}:[0-9]{2} ", "TIME "),
          {"[ 1-3][0-9]-[A-Z][a-z]{2}-[0-9]{4} ", "DATE "},
          {"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", "BOOT"},
          {"[0-9]+-[0-9a-f]{8}-[0-9]+", "PID-N"},
          {"[0-9]+-[0-9a-f]{8}", "PID"},
          {"note[.]" + std::string(host_name()) + "[.][0-9]+", "note.HOST.PID"},
          {" [0-9a-f]+:[1-9a-f][0-9a-f]*:[0-9a-f]+ ", " DEVICE:INODE:BIRTH "},
          {"FDF[.][a-zA-F]{6}", "FDF.xxxxxx"}})
        text = std::regex_replace(text, std::regex(pattern), regular);
    text = std::regex_replace(text, std::regex(here.path()), "HERE");
    // Found paths begin with the current directory as this process first saw it.
    text = std::regex_replace(text, std::regex("( 1 )" + fs::current_path().string() + "(/|\n)"), "$1HERE$2");
    text = std::regex_replace(text, std::regex(today()), "MONDD");
    return shortened(text) + (status ? "    FAILED\n" : "");
}

TEST(Scripts, EachGivesWhatItsRefSays)
{
    struct stat here, there;
    if (geteuid() != 0 || stat("/tmp", &here) != 0 || stat("/dev/shm", &there) != 0 ||
        here.st_dev == there.st_dev)
        GTEST_SKIP() << "needs the superuser and a /dev/shm on a file system of its own";
    for (const auto &script : fs::directory_iterator(TEST_DATA "/scripts")) {
        fs::path path = script.path();
        if (path.extension() != ".in")
            continue;
        std::string text = read_file(path), played_text;
        for (size_t at = text.find("== "), next; at != text.npos; at = next) {
            next = text.find("== ", at + 1);
            played_text += played(text.substr(at, next - at));
        }
        path.replace_extension(".ref");
        if (getenv("UPDATE_REFS"))  // to be read before it is taken
            std::ofstream(path) << played_text;
        EXPECT_EQ(read_file(path), played_text) << script.path();
    }
}

}  // namespace faxtray
