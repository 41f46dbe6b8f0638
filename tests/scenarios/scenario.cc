// Each kind of step is a function; what they share is below, since a process runs one scenario.
#include "scenarios/scenario.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "registry/regd_client.h"
#include "scenarios/regular.h"
#include "scenarios/replies.h"
#include "scenarios/step.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/site.h"
#include "support/wait_for.h"
#include "util/short_hash.h"

namespace faxtray {

namespace fs = std::filesystem;

static const std::string site_path = "/run/site/", fax_ids_file = "work/fax_ids.localhost",
                         lock_files = "work/trayd_lock.";

static std::string transcript;
static pid_t daemon_pid = -1;
static step_t failure;  // to be injected into the step that follows
static std::set<std::string> hidden = {"  trace: ", "  access: "};  // logs that are shown on request
static time_t last_mtime = 1'700'000'000;                           // of the file written last
static std::map<std::string, std::string> put_;  // content of files that were put, and their paths
static std::map<std::string, std::string> seen;  // what was reported of each log so far
static std::map<std::string, uint32_t> fax_ids;  // as last listed, by name
static uint32_t last_check;                      // check value of the last listing

// Writes `text` down, `mark` in front of each line.
static void say(const std::string &mark, const std::string &text)
{
    std::istringstream lines(made_regular(text));
    for (std::string line; std::getline(lines, line);) {
        transcript += mark;
        for (const char ch : line)
            transcript += ch >= ' ' && ch <= '~' ? std::string(1, ch) : shown_bytes({ch}).substr(1, 4);
        transcript += "\n";
    }
}

// What a step led to.

static constexpr struct {
    const char *path, *mark;
} logs[] = {{"/run/output", "  output: "},
            {"/run/site/work/trayd_log", "  log: "},
            {"/run/site/work/exception_log", "  exceptions: "},
            {"/run/registry", "  registry: "},
            {"/run/site/work/access_log", "  access: "},
            {"/run/site/work/trace_faxtrayd", "  trace: "}};

// The order in which a directory is read is the kernel's: neighbouring lines on its files are sorted.
static std::string sorted_trace(const std::string &trace)
{
    static constexpr size_t time_size = sizeof "00:00:00 " - 1;
    auto is_on_file = [](const std::string &line) {
        return line.find("update_index: Adding") == time_size ||
               line.find("update_index: Ignoring") == time_size;
    };
    auto less = [](const std::string &a, const std::string &b) {
        return a.substr(time_size) < b.substr(time_size);
    };
    std::istringstream in(trace);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
        lines.push_back(line + "\n");
    for (auto from = lines.begin(), to = from; from != lines.end(); from = to == lines.end() ? to : to + 1)
        std::sort(from, to = std::find_if_not(from, lines.end(), is_on_file), less);
    std::string text;
    for (const std::string &line : lines)
        text += line;
    return text;
}

static void report_logs_and_mails()
{
    for (const auto &[path, mark] : logs) {
        const std::string text = fs::is_regular_file(path) ? read_file(path) : "";
        const std::string added = text.starts_with(seen[path]) ? text.substr(seen[path].size()) : text;
        seen[path] = text;
        if (!hidden.contains(mark))
            say(mark, mark == std::string("  trace: ") ? sorted_trace(added) : added);
    }
    for (const std::string &mail : take_mail()) {
        say("  mail: ", mail);
        transcript += "  mail ends\n";
    }
}

static std::string shown_mode(const fs::path &path)
{
    struct stat st = {};
    lstat(path.c_str(), &st);
    char text[16];
    snprintf(text, sizeof text, "%c%03o ",
             S_ISDIR(st.st_mode)   ? 'd'
             : S_ISREG(st.st_mode) ? '-'
                                   : '?',
             st.st_mode & 07777);
    return text;
}

static std::string shown_content(const std::string &content, const std::string &path)
{
    const auto known = put_.find(content);
    if (content.empty() || known == put_.end())
        return shown_bytes(content);
    return known->second == path ? "as put" : "as put in " + known->second;
}

// The directories below the site's own, with what is in them.
static void report_files()
{
    transcript += "\n# files\n";
    std::vector<fs::path> paths;
    for (const auto &entry : fs::recursive_directory_iterator(site_path))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    for (const fs::path &path : paths) {
        const std::string name = path.string().substr(site_path.size());
        const bool is_file = fs::is_regular_file(fs::symlink_status(path));
        if ((is_file && name.find('/') == name.npos) || name == fax_ids_file || name.starts_with(lock_files))
            continue;
        const bool is_log =
            std::any_of(std::begin(logs), std::end(logs), [&](const auto &log) { return path == log.path; });
        if (name == "work/access_log" && hidden.contains("  access: "))
            continue;
        say("", shown_mode(path) + name +
                    (is_file && !is_log ? ": " + shown_content(read_file(path), name) : ""));
    }
}

// Files.

static void add_file(const std::string &path, const std::string &content, const step_t &step = {})
{
    const std::string made = site_path + "being-written";
    fs::create_directories(fs::path(site_path + path).parent_path());
    std::ofstream(made, std::ios::binary) << content;
    chmod(made.c_str(), static_cast<mode_t>(std::stoi(step.option("mode", "644"), nullptr, 8)));
    set_mtime(made,
              step.options.contains("age") ? time(nullptr) - std::stol(step.option("age")) : ++last_mtime);
    fs::rename(made, site_path + path);
}

// put PATH [NAME=VALUE...]: a fax with that header; with "count", as many of them, 000 and so on for the "*".
static void put(const step_t &step)
{
    static constexpr std::pair<const char *, const char *> attributes[] = {{"sender", "SENDER_FAX#"},
                                                                           {"subaddress", "T30_SUB_FRAME"},
                                                                           {"password", "T30_PWD_FRAME"},
                                                                           {"df", "COMPRESSION"}};
    std::string lines = "#PAGES:" + step.option("pages", "1") + "\n";
    for (const auto &[name, attribute] : attributes)
        if (step.options.contains(name))
            lines += std::string(attribute) + ":" + step.option(name) + "\n";
    for (uint32_t n = 0; n < step.number("count", 1); n++) {
        std::string path = step.word(0), pages;
        if (const size_t star = path.find('*'); star != std::string::npos)
            path.replace(star, 1, std::to_string(1000 + n).substr(1));
        do
            pages += "pages of " + path + "\n";
        while (pages.size() < step.number("size", 0));
        std::string content = fax_bytes(lines, pages.substr(0, step.number("size", UINT32_MAX)));
        if (step.options.contains("copy"))
            content = read_file(SCENARIOS "/../faxes/" + step.option("copy"));
        put_.emplace(content, path);
        add_file(path, content, step);
    }
}

static void write(const step_t &step)
{
    const std::string content = step.option("text", step.block);
    put_.emplace(content, step.word(0));
    add_file(step.word(0), content, step);
}

static void append(const step_t &step)
{
    add_file(step.word(0), read_file(site_path + step.word(0)) + step.block, step);
}

// Programs.

// start [OPTIONS]: in the foreground on the site's files, until it answers or ends.
static void start(const step_t &step)
{
    std::vector<std::string> words = {"faxtrayd",       "-f", "-W",         "work", "-U",
                                      "USER_LIST.info", "-M", "MODEMS.info"};
    words.insert(words.end(), step.words.begin(), step.words.end());
    fax_ids.clear();
    forget_fax_ids();
    daemon_pid = spawn(words, site_path, "/run/output");
    wait_for([] { return has_ended(daemon_pid) || daemon_answers(); });
}

// signal NAME [until=TEXT]: and waits until the log says so.
static void signal(const step_t &step)
{
    run_shell("kill -" + step.word(0) + " " + std::to_string(daemon_pid));
    const std::string log = site_path + "work/trayd_log", until = step.option("until");
    if (!until.empty() &&
        !wait_for([&] { return read_file(log).find(until, seen[log].size()) != until.npos; }))
        say("  error: ", "the log does not say so");
}

// stop [SIGNAL]
static void stop(const step_t &step)
{
    signal(parse_step("signal " + (step.words.empty() ? "TERM" : step.word(0))));
    wait_for([] { return has_ended(daemon_pid); });
}

// Shell commands in the site's directory, without a terminal, all programs of this build in reach; for the
// name of a listed fax in braces its id.
static void shell(const step_t &step)
{
    std::string command = step.rest + "\n" + step.block;
    for (const auto &[name, id] : fax_ids)
        for (size_t at; (at = command.find("{" + name + "}")) != std::string::npos;)
            command.replace(at, name.size() + 2, std::to_string(id));
    std::ofstream("/run/command") << command;
    const ended_t ended = run_shell("setsid -w sh /run/command </dev/null");
    say("  | ", ended.output);
    if (ended.status != 0)
        say("  = exit ", std::to_string(ended.status));
}

static void registry(const step_t &step)
{
    run_shell(step.word(0) == "start" ? "faxregd -U USER_LIST.info -M MODEMS.info 2>>/run/registry"
                                      : "kill $(pidof faxregd); while pidof faxregd; do sleep 0.01; done");
}

// ask users|modems|forwarders KEY [ATTRIBUTE]: one record of the registry.
static void ask(const step_t &step)
{
    static constexpr const char *lists[] = {"users", "modems", "forwarders", "conf"};
    const auto list = std::find(std::begin(lists), std::end(lists), step.word(0)) - std::begin(lists);
    regd_handle_t *handle = regd_open(nullptr, 1);
    const av_list_t *entry = handle ? regd_get_av_entry(handle, regd_credentials(), static_cast<int>(list), 1,
                                                        step.word(1).c_str())
                                    : nullptr;
    if (const err_t *error = regd_error(); !entry && error)
        say("  = error ", std::to_string(error->code) + " errno " + std::to_string(error->sys_errno) + " " +
                              error->message);
    for (const av_node_t *node = entry ? entry->nodes : nullptr; node; node = node->next)
        if (step.words.size() < 3 || step.word(2) == node->attr)
            say("  =   ", std::string(node->attr) + " = " + node->value);
    if (entry && entry->next)
        say("  =   ", "and more than was asked for");
    regd_close(handle);
}

static void port_mapper(const step_t &step)
{
    step.word(0) == "start" ? start_port_mapper() : stop_port_mapper();
}

// needs PROGRAM: the scenario is skipped where that is not installed.
static void need(const step_t &step)
{
    if (access(step.word(0).c_str(), X_OK) != 0)
        exit(NO_PRIVATE_HOST);
}

// agent: a mail agent of these lines; without any, the recording one.
static void agent(const step_t &step)
{
    step.block.empty() ? restore_mail_agent() : replace_mail_agent("#!/bin/sh\n" + step.block);
}

// trace|access on|off: whether that log is shown.
static void show_log(const step_t &step)
{
    const std::string mark = "  " + step.verb + ": ";
    step.word(0) == "on" ? (void)hidden.erase(mark) : (void)hidden.insert(mark);
}

// export NAME=VALUE...: the environment of whatever starts from here on.
static void set_environment(const step_t &step)
{
    for (const auto &[name, value] : step.options)
        setenv(name.c_str(), value.c_str(), 1);
}

// Has strace let that system call of the daemon fail, or (with a number for the error) return at once.
static pid_t inject(const step_t &step)
{
    const std::string call = step.word(0),
                      kind = isdigit(step.word(1)[0]) ? ":retval=" : ":error=", file = step.option("on");
    std::vector<std::string> words = {"strace",
                                      "-qq",
                                      "-f",
                                      "-o",
                                      "/dev/null",
                                      "-p",
                                      std::to_string(daemon_pid),
                                      "-e",
                                      "trace=" + call,
                                      "-e",
                                      "inject=" + call + kind + step.word(1) +
                                          ":when=" + step.option("when", "1+")};
    if (!file.empty())
        words.insert(words.end(), {"-P", file, "-P", site_path + file});
    const pid_t strace = spawn(words, site_path, "/run/strace");
    const std::string status = "/proc/" + std::to_string(daemon_pid) + "/status";
    if (!wait_for([&] { return read_file(status).find("TracerPid:\t0\n") == std::string::npos; }))
        say("  error: ", "strace does not attach");
    daemon_answers();  // once round the loop, under strace
    return strace;
}

// Calls.

static uint32_t fax_id(const std::string &name)
{
    const auto found = fax_ids.find(name);
    return found == fax_ids.end() ? static_cast<uint32_t>(std::stoll(name)) : found->second;
}

// Of the incoming inbox in that directory; other texts are returned as they are.
static std::string handle_of(const std::string &inbox)
{
    return !inbox.empty() && fs::is_directory(site_path + inbox) ? passwd((site_path + inbox).c_str())
                                                                 : inbox;
}

// as NAME or NAME/PASSWORD; "as -" is nobody.
static std::string identity_of(const step_t &step)
{
    const std::string who = step.option("as");
    if (who == "-")
        return word(0);
    const size_t slash = std::min(who.find('/'), who.size());
    const std::string password = slash < who.size() ? passwd(who.substr(slash + 1).c_str()) : "";
    return (step.option("form") == "bare" ? bare_identity : identity)(who.substr(0, slash), password,
                                                                      step.number("entry", 0));
}

// list, oldest, count, commit, read, remove, deliver...: of the user's own inbox, or "from" an incoming one.
static reply_t make_call(const step_t &step)
{
    auto fax = [&] { return word(fax_id(step.word(0))); };
    auto check = [&] { return word(step.option("check") == "last" ? last_check : step.number("check", 0)); };
    auto nothing = [] { return std::string(); };
    const struct {
        const char *verb;
        uint32_t own, incoming;  // procedures
        std::function<std::string()> arguments;
    } calls[] = {
        {"rev", 1, 0, nothing},
        {"list", 2, 13,
         [&] {
             return word(fax_id(step.option("start", "0"))) + word(step.number("how", 1)) +
                    word(step.number("count", 0)) + check();
         }},
        {"commit", 3, 16, nothing},
        {"oldest", 4, 14, nothing},
        {"read", 5, 17,
         [&] { return fax() + word(step.number("size", 262144)) + word(step.number("offset", 0)); }},
        {"remove", 6, 18, fax},
        {"deliver", 0, 7, [&] { return fax() + text(step.option("to")); }},
        {"recipients", 8, 0, [&] { return text("") + word(0) + word(0) + text("") + check(); }},
        {"count", 9, 15, nothing},
        {"inboxes", 10, 0, nothing},
        {"status", 11, 0, nothing},
        {"shutdown", 12, 0, nothing},
    };
    const auto *row = std::find_if(std::begin(calls), std::end(calls),
                                   [&](const auto &known) { return known.verb == step.verb; });
    if (row == std::end(calls))
        throw std::runtime_error("no such step");
    if (!step.options.contains("from"))
        return call(row->own, identity_of(step) + row->arguments());
    return call(row->incoming, identity_of(step) + text(handle_of(step.option("from"))) + row->arguments());
}

static void request(const step_t &step)
{
    const reply_t reply = make_call(step);
    std::vector<std::string> lines = shown_reply(reply, &fax_ids);
    if (reply.code() == 0 && (step.verb == "list" || step.verb == "recipients"))
        last_check = reply.at(step.verb == "list" ? 2 : 1);
    if (step.word(0) == "brief" && lines.size() > 3) {  // the first, how many between, the last
        lines[2] = "  ... " + std::to_string(lines.size() - 3) + " more ...";
        lines.erase(lines.begin() + 3, lines.end() - 1);
    }
    for (const std::string &line : lines)
        say("  = ", line);
}

// call PROCEDURE [HEX]: arguments as they go over the wire.
static void call_raw(const step_t &step)
{
    std::string bytes;
    for (const std::string &hex : std::vector(step.words.begin() + 1, step.words.end()))
        for (size_t at = 0; at + 1 < hex.size(); at += 2)
            bytes += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    const reply_t reply = call(static_cast<uint32_t>(std::stoul(step.word(0))), bytes);
    for (const std::string &line : shown_reply(reply, &fax_ids))
        say("  = ", line);
}

// fetch NAME: reads a fax as clients do, until an empty chunk or an error comes.
static void fetch(step_t step)
{
    step.verb = "read";
    std::string fax;
    for (int reads = 1;; reads++) {
        step.options["offset"] = std::to_string(fax.size());
        const reply_t reply = make_call(step);
        fax += reply.code() == 0 ? reply.chunk() : "";
        if (reply.code() != 0 || reply.chunk().empty()) {
            say("  = ", shown_reply(reply, &fax_ids)[0]);
            return say("  = ", std::to_string(reads) + " reads, " + shown_content(fax, ""));
        }
    }
}

// The whole.

static void act(const step_t &step)
try {
    static const std::map<std::string, std::function<void(const step_t &)>> verbs = {
        {"$", shell},        {"put", put},
        {"write", write},    {"append", append},
        {"start", start},    {"stop", stop},
        {"signal", signal},  {"registry", registry},
        {"ask", ask},        {"rpcbind", port_mapper},
        {"agent", agent},    {"needs", need},
        {"trace", show_log}, {"access", show_log},
        {"call", call_raw},  {"export", set_environment},
        {"fetch", fetch}};
    const auto verb = verbs.find(step.verb);
    verb == verbs.end() ? request(step) : verb->second(step);
} catch (const std::exception &e) {
    say("  error: ", e.what());
}

// Whether the daemon has no children: nothing that it has still to say will come. One may follow another, but
// not while it answers.
static bool is_alone()
{
    const std::string pid = std::to_string(daemon_pid),
                      children = "/proc/" + pid + "/task/" + pid + "/children";
    return read_file(children).empty() && daemon_answers() && read_file(children).empty();
}

static void take(const step_t &step)
{
    if (step.verb == "fail") {
        failure = step;
        return;
    }
    const pid_t injector = failure.verb.empty() ? -1 : inject(std::exchange(failure, {}));
    act(step);
    // Once it answers and its notices are sent, all that follows the step's reply is done.
    if (daemon_pid > 0 && !is_alone())
        wait_for([] { return has_ended(daemon_pid) || is_alone(); });
    if (daemon_pid > 0 && !daemon_answers() && wait_for([] { return has_ended(daemon_pid); })) {
        const int status = await(std::exchange(daemon_pid, -1));
        say("  = ", status < 1000 ? "exit " + std::to_string(status)
                                  : "ended by signal " + std::to_string(status - 1000));
    }
    if (injector > 0) {
        kill(injector, SIGTERM);
        await(injector);
    }
    report_logs_and_mails();
}

static void make_site()
{
    for (const char *dir : {"work", "incoming", "faxtrayes", "tmp"})
        fs::create_directories(site_path + dir);
    for (const char *list : {"USER_LIST.info", "MODEMS.info", "TRACES"})
        add_file(list, read_file(std::string(SCENARIOS "/site/") + list));
    std::ofstream(site_path + fax_ids_file) << "1\n";  // as on a site where the daemon has run before
    for (const auto &[name, value] : {std::pair("TZ", "UTC"),
                                      {"LC_ALL", "C"},
                                      {"ONDRIXTMP", "/run/site/tmp"},
                                      {"XDG_CACHE_HOME", "/run/cache"},
                                      {"XDG_CONFIG_HOME", "/run/config"},
                                      {"XDG_STATE_HOME", "/run/state"}})
        setenv(name, value, 1);
    tzset();
    unsetenv("ONDRIXHOME");
    const std::string path = site_path + ":" BINARIES ":" + getenv("PATH");  // the site may replace programs
    setenv("PATH", path.c_str(), 1);
    setenv("TESTS", SCENARIOS "/../..", 1);  // for programs of tests/tools
    umask(022);
    fs::current_path(site_path);
}

std::string run_scenario(const std::string &script)
{
    make_site();
    std::istringstream lines(script + "\n");
    std::string line, echo;
    for (step_t step; std::getline(lines, line); echo += line + "\n") {
        if (line.starts_with("    ")) {
            step.block += line.substr(4) + "\n";
            continue;
        }
        transcript += std::exchange(echo, "");
        if (!step.verb.empty())
            take(step);
        step = line.starts_with("#") ? step_t() : parse_step(line);
    }
    if (daemon_pid > 0) {
        transcript += "stop\n";
        take(parse_step("stop"));
    }
    report_files();
    return transcript;
}

}  // namespace faxtray
