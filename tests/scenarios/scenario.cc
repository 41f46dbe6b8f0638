#include "scenarios/scenario.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "scenarios/replies.h"
#include "support/daemon.h"
#include "support/private_host.h"
#include "support/site.h"
#include "support/wait_for.h"
#include "util/short_hash.h"

namespace faxtray {

namespace fs = std::filesystem;

static const std::string site_path = "/run/site/";

// Where to look for what a step led to, and the mark in front of its lines.
static constexpr struct {
    const char *path, *mark;
} logs[] = {{"/run/output", "  output: "},
            {"/run/site/work/trayd_log", "  log: "},
            {"/run/site/work/exception_log", "  exceptions: "},
            {"/run/registry", "  registry: "},
            {"/run/site/work/trace_faxtrayd", "  trace: "}};

// --- steps

// The next word at `*at`, up to white space outside quotation marks, which go; \n, \" and \xHH inside them.
static std::string next_word(const std::string &line, size_t *at)
{
    std::string word;
    bool quoted = false;
    for (; *at < line.size() && (quoted || line[*at] != ' '); ++*at) {
        if (line[*at] == '"') {
            quoted = !quoted;
        } else if (quoted && line[*at] == '\\') {
            const char ch = line[++*at];
            if (ch == 'x') {
                word += static_cast<char>(std::stoi(line.substr(*at + 1, 2), nullptr, 16));
                *at += 2;
            } else {
                word += ch == 'n' ? '\n' : ch;
            }
        } else {
            word += line[*at];
        }
    }
    while (*at < line.size() && line[*at] == ' ')
        ++*at;
    return word;
}

step_t parse_step(const std::string &line)
{
    step_t step;
    size_t at = 0;
    step.verb = next_word(line, &at);
    step.rest = line.substr(at);
    while (at < line.size()) {
        const bool bare = line[at] != '"';
        const std::string word = next_word(line, &at);
        const size_t equals = word.find('=');
        if (bare && (word == "as" || word == "from" || word == "to"))
            step.options[word] = next_word(line, &at);
        else if (bare && equals != std::string::npos)
            step.options[word.substr(0, equals)] = word.substr(equals + 1);
        else
            step.words.push_back(word);
    }
    return step;
}

std::string step_t::option(const char *name, const std::string &otherwise) const
{
    const auto found = options.find(name);
    return found == options.end() ? otherwise : found->second;
}

uint32_t step_t::number(const char *name, uint32_t otherwise) const
{
    return static_cast<uint32_t>(std::stoll(option(name, std::to_string(otherwise))));
}

const scenario_t::verb_t scenario_t::verbs[] = {
    {"$", &scenario_t::shell},           {"put", &scenario_t::put},
    {"write", &scenario_t::write},       {"append", &scenario_t::append},
    {"age", &scenario_t::age},           {"start", &scenario_t::start},
    {"stop", &scenario_t::stop},         {"restart", &scenario_t::restart},
    {"signal", &scenario_t::signal},     {"set", &scenario_t::set},
    {"registry", &scenario_t::registry}, {"rpcbind", &scenario_t::port_mapper},
    {"agent", &scenario_t::agent},       {"fail", &scenario_t::fail},
    {"trace", &scenario_t::show_trace},  {"call", &scenario_t::call_raw},
    {"fetch", &scenario_t::fetch}};

void scenario_t::take(const step_t &step)
{
    const verb_t *verb = std::find_if(std::begin(verbs), std::end(verbs),
                                      [&](const verb_t &known) { return known.name == step.verb; });
    if (step.verb == "fail")
        return fail(step);
    if (!failure_.verb.empty())
        inject(failure_);
    try {
        if (verb == std::end(verbs))
            call_daemon(step);
        else
            (this->*verb->act)(step);
    } catch (const std::exception &e) {
        say("  error: ", e.what());
    }
    report_changes();
}

std::string scenario_t::run(const std::string &script)
{
    std::istringstream lines(script);
    std::string line, echo, held;
    step_t step;
    bool has_step = false;
    auto finish = [&] {
        transcript_ += echo;
        echo.clear();
        if (has_step)
            take(step);
        has_step = false;
    };
    while (std::getline(lines, line)) {
        if (line.starts_with("    ")) {
            step.block += line.substr(4) + "\n";
            echo += line + "\n";
            continue;
        }
        finish();
        echo = line + "\n";
        has_step = !line.empty() && line[0] != '#';
        if (has_step)
            step = parse_step(line);
    }
    finish();
    if (daemon_ > 0) {
        transcript_ += "stop\n";
        take(parse_step("stop"));
    }
    show_files();
    return transcript_;
}

// Writes `text` down, `mark` in front of each line.
void scenario_t::say(const std::string &mark, const std::string &text)
{
    std::istringstream lines(regular_.made_regular(text));
    for (std::string line; std::getline(lines, line);) {
        std::string printable;
        for (const char ch : line)
            printable += ch >= ' ' && ch <= '~' ? std::string(1, ch) : shown_bytes({ch}).substr(1, 4);
        transcript_ += mark + printable + "\n";
    }
}

// The order in which a directory is read is the kernel's: lines on its files are sorted.
static std::string sorted_trace(const std::string &trace)
{
    std::istringstream lines(trace);
    std::vector<std::string> sorted;
    std::ptrdiff_t first_file = 0;
    for (std::string line; std::getline(lines, line);) {
        sorted.push_back(line);
        const size_t text = std::min(line.find("update_index: "), line.size());
        if (line.compare(text, 20, "update_index: Adding") == 0 ||
            line.compare(text, 22, "update_index: Ignoring") == 0)
            std::sort(sorted.begin() + first_file, sorted.end(),
                      [](const std::string &a, const std::string &b) { return a.substr(9) < b.substr(9); });
        else
            first_file = static_cast<std::ptrdiff_t>(sorted.size());
    }
    std::string text;
    for (const std::string &line : sorted)
        text += line + "\n";
    return text;
}

// What the step added to the logs, and the mails that went out.
void scenario_t::report_changes()
{
    if (daemon_ > 0 && waitpid(daemon_, nullptr, WNOHANG) == daemon_) {
        say("  = ", "faxtrayd has ended");
        daemon_ = -1;
    }
    if (daemon_ > 0)
        daemon_answers();  // so that all that follows a reply is done
    if (injector_ > 0) {
        kill(injector_, SIGTERM);
        waitpid(injector_, nullptr, 0);
        injector_ = -1;
    }
    for (const auto &[path, mark] : logs) {
        const std::string text = fs::is_regular_file(path) ? read_file(path) : "";
        std::string &seen = seen_[path];
        std::string added = text.starts_with(seen) ? text.substr(seen.size()) : text;
        seen = text;
        if (mark != std::string("  trace: "))
            say(mark, added);
        else if (trace_shown_)
            say(mark, sorted_trace(added));
    }
    for (const std::string &mail : take_mail()) {
        say("  mail: ", mail);
        transcript_ += "  mail ends\n";
    }
}

// --- files

scenario_t::scenario_t()
{
    for (const char *dir : {"work", "incoming", "faxtrayes", "tmp"})
        fs::create_directories(site_path + dir);
    for (const char *list : {"USER_LIST.info", "MODEMS.info", "TRACES"})
        add_file(list, read_file(std::string(SCENARIOS "/site/") + list), {});
    unsetenv("ONDRIXHOME");
    setenv("ONDRIXTMP", (site_path + "tmp").c_str(), 1);
    setenv("PATH", (std::string(BINARIES ":") + site_path + ":" + getenv("PATH")).c_str(), 1);
    umask(022);
    fs::current_path(site_path);
}

scenario_t::~scenario_t()
{
    if (daemon_ > 0)
        kill(daemon_, SIGKILL);
}

void scenario_t::add_file(const std::string &path, const std::string &content, const step_t &step)
{
    fs::create_directories((site_path + path).substr(0, (site_path + path).rfind('/')));
    const std::string made = site_path + "being-written";
    std::ofstream(made, std::ios::binary) << content;
    chmod(made.c_str(), static_cast<mode_t>(std::stoi(step.option("mode", "644"), nullptr, 8)));
    set_mtime(made, step.options.contains("age") ? time(nullptr) - step.number("age", 0) : ++clock_);
    fs::rename(made, site_path + path);
}

// put PATH [NAME=VALUE...]: a fax with that header; "count=N": N of them, 000 and so on for the "*".
void scenario_t::put(const step_t &step)
{
    const std::pair<const char *, const char *> attributes[] = {{"pages", "#PAGES"},
                                                                {"sender", "SENDER_FAX#"},
                                                                {"subaddress", "T30_SUB_FRAME"},
                                                                {"password", "T30_PWD_FRAME"},
                                                                {"df", "COMPRESSION"}};
    std::string lines = step.options.contains("pages") ? "" : "#PAGES:1\n";
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

void scenario_t::write(const step_t &step)
{
    std::string content = step.options.contains("text") ? step.option("text") : step.block;
    put_.emplace(content, step.word(0));
    add_file(step.word(0), content, step);
}

void scenario_t::append(const step_t &step)
{
    add_file(step.word(0), read_file(site_path + step.word(0)) + step.block, step);
}

void scenario_t::age(const step_t &step)
{
    set_mtime(site_path + step.word(1), time(nullptr) - std::stol(step.word(0)));
}

static std::string shown_mode(const fs::directory_entry &entry)
{
    struct stat st = {};
    lstat(entry.path().c_str(), &st);
    char text[16];
    snprintf(text, sizeof text, "%c%03o",
             S_ISDIR(st.st_mode)   ? 'd'
             : S_ISREG(st.st_mode) ? '-'
                                   : '?',
             st.st_mode & 07777);
    return text;
}

// The directories below the site's own, with what is in them.
void scenario_t::show_files()
{
    transcript_ += "\n# files\n";
    std::vector<fs::directory_entry> entries;
    for (const auto &entry : fs::recursive_directory_iterator(site_path))
        if (entry.path().parent_path().string() + "/" != site_path || entry.is_directory())
            entries.push_back(entry);
    std::sort(entries.begin(), entries.end());
    for (const auto &entry : entries) {
        const std::string path = entry.path().string().substr(site_path.size());
        const bool is_log = std::any_of(std::begin(logs), std::end(logs),
                                        [&](const auto &log) { return entry.path() == log.path; });
        std::string text = shown_mode(entry) + " " + path;
        if (entry.is_symlink() || !entry.is_regular_file() || is_log) {
            say("", text);
            continue;
        }
        const std::string content = read_file(entry.path());
        const auto known = content.empty() ? put_.end() : put_.find(content);
        say("", text + ": " +
                    (known == put_.end()     ? shown_bytes(content)
                     : known->second == path ? "as put"
                                             : "as put in " + known->second));
    }
}

// --- programs

static std::string shown_status(int status)
{
    return status >= 1000 ? "ended by signal " + std::to_string(status - 1000)
                          : "exit " + std::to_string(status);
}

static pid_t spawn(const std::vector<std::string> &words, const char *output)
{
    std::vector<char *> argv;
    for (const std::string &word : words)
        argv.push_back(const_cast<char *>(word.c_str()));
    argv.push_back(nullptr);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    const int out = open(output, O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (dup2(out, 1) == 1 && dup2(out, 2) == 2)
        execvp(argv[0], argv.data());
    _exit(127);
}

void scenario_t::report_end(int status)
{
    say("  = ", shown_status(WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status)));
    daemon_ = -1;
}

// start [OPTIONS]: in the foreground on the site's files, until it answers.
void scenario_t::start(const step_t &step)
{
    std::vector<std::string> words = {"faxtrayd",       "-f", "-W",         "work", "-U",
                                      "USER_LIST.info", "-M", "MODEMS.info"};
    words.insert(words.end(), step.words.begin(), step.words.end());
    ids_.clear();
    daemon_ = spawn(words, "/run/output");
    int status = 0;
    bool ended = false;
    wait_for([&] { return (ended = waitpid(daemon_, &status, WNOHANG) == daemon_) || daemon_answers(); });
    if (ended)
        report_end(status);
}

// signal NAME [until=TEXT]: and waits until the log says so.
void scenario_t::signal(const step_t &step)
{
    const std::pair<const char *, int> names[] = {{"TERM", SIGTERM}, {"INT", SIGINT},   {"QUIT", SIGQUIT},
                                                  {"HUP", SIGHUP},   {"CHLD", SIGCHLD}, {"KILL", SIGKILL},
                                                  {"SEGV", SIGSEGV}, {"BUS", SIGBUS},   {"USR1", SIGUSR1},
                                                  {"USR2", SIGUSR2}, {"PIPE", SIGPIPE}};
    for (const auto &[name, sig] : names)
        if (name == step.word(0) && daemon_ > 0)
            kill(daemon_, sig);
    const std::string log = site_path + "work/trayd_log", until = step.option("until");
    if (!wait_for([&] {
            return until.empty() || read_file(log).find(until, seen_[log].size()) != std::string::npos;
        }))
        say("  error: ", "the log does not say so");
}

// stop [SIGNAL]
void scenario_t::stop(const step_t &step)
{
    signal(parse_step("signal " + (step.words.empty() ? "TERM" : step.word(0))));
    int status = 0;
    if (daemon_ > 0 && !wait_for([&] { return waitpid(daemon_, &status, WNOHANG) == daemon_; })) {
        kill(daemon_, SIGKILL);
        waitpid(daemon_, &status, 0);
    }
    report_end(status);
}

void scenario_t::restart(const step_t &step)
{
    stop({});
    start(step);
}

// Shell commands in the site's directory, all programs of this build in reach, no terminal. {NAME} is a fax's
// id.
void scenario_t::shell(const step_t &step)
{
    std::string command = step.rest;
    for (const auto &[name, id] : ids_)
        for (size_t at; (at = command.find("{" + name + "}")) != std::string::npos;)
            command.replace(at, name.size() + 2, std::to_string(id));
    const std::string script = "/run/command";
    std::ofstream(script) << command << "\n" << step.block;
    const ended_t ended = run_shell("setsid -w sh " + script + " </dev/null");
    say("  | ", ended.output);
    if (ended.status != 0)
        say("  = ", shown_status(ended.status));
}

void scenario_t::set(const step_t &step)
{
    for (const auto &[name, value] : step.options)
        setenv(name.c_str(), value.c_str(), 1);
}

void scenario_t::registry(const step_t &step)
{
    run_shell(step.word(0) == "start" ? "faxregd -U USER_LIST.info -M MODEMS.info 2>>/run/registry"
                                      : "kill $(pidof faxregd); while pidof faxregd; do sleep 0.01; done");
}

void scenario_t::port_mapper(const step_t &step)
{
    step.word(0) == "start" ? start_port_mapper() : stop_port_mapper();
}

// agent: a mail agent of these lines; without any, the recording one.
void scenario_t::agent(const step_t &step)
{
    step.block.empty() ? restore_mail_agent() : replace_mail_agent("#!/bin/sh\n" + step.block);
}

// trace on|off: whether what faxtrayd traces is shown from here on.
void scenario_t::show_trace(const step_t &step)
{
    trace_shown_ = step.word(0) == "on";
}

// fail SYSCALL ERROR [on=PATH] [when=N]: in the step that follows.
void scenario_t::fail(const step_t &step)
{
    failure_ = step;
}

void scenario_t::inject(const step_t &failure)
{
    std::vector<std::string> words = {"strace",
                                      "-qq",
                                      "-f",
                                      "-o",
                                      "/dev/null",
                                      "-e",
                                      "trace=" + failure.word(0),
                                      "-e",
                                      "inject=" + failure.word(0) +
                                          (isdigit(failure.word(1)[0]) ? ":retval=" : ":error=") +
                                          failure.word(1) + ":when=" + failure.option("when", "1+")};
    if (failure.options.contains("on"))
        words.insert(words.end(), {"-P", failure.option("on"), "-P", site_path + failure.option("on")});
    words.insert(words.end(), {"-p", std::to_string(daemon_)});
    injector_ = spawn(words, "/run/strace");
    const std::string status = "/proc/" + std::to_string(daemon_) + "/status";
    if (!wait_for([&] { return read_file(status).find("TracerPid:\t0\n") == std::string::npos; }))
        say("  error: ", "strace does not attach");
    daemon_answers();  // once round the loop, under strace
    failure_ = {};
}

// --- calls

uint32_t scenario_t::fax_id(const std::string &name) const
{
    const auto found = ids_.find(name);
    return found == ids_.end() ? static_cast<uint32_t>(std::stoll(name)) : found->second;
}

// Of the incoming inbox in that directory; other texts stand for themselves.
std::string scenario_t::handle_of(const std::string &inbox) const
{
    return fs::is_directory(site_path + inbox) && !inbox.empty() ? passwd((site_path + inbox).c_str())
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
    const auto form = step.option("form") == "bare" ? bare_identity : identity;
    return form(who.substr(0, slash), password, step.number("entry", 0));
}

// list, oldest, count, commit, read, remove, deliver...: the user's own inbox, or "from" an incoming one.
reply_t scenario_t::make_call(const step_t &step)
{
    const std::string who = identity_of(step);
    auto id = [&] { return word(fax_id(step.word(0))); };
    auto check = [&] { return step.option("check") == "last" ? index_check_ : step.number("check", 0); };
    const struct {
        const char *verb;
        uint32_t own, incoming;  // procedures
        std::function<std::string()> arguments;
    } calls[] = {
        {"rev", 1, 0, [] { return ""; }},
        {"list", 2, 13,
         [&] {
             return word(fax_id(step.option("start", "0"))) + word(step.number("how", 1)) +
                    word(step.number("count", 0)) + word(check());
         }},
        {"commit", 3, 16, [] { return ""; }},
        {"oldest", 4, 14, [] { return ""; }},
        {"read", 5, 17,
         [&] { return id() + word(step.number("size", 262144)) + word(step.number("offset", 0)); }},
        {"remove", 6, 18, id},
        {"deliver", 0, 7, [&] { return id() + text(step.option("to")); }},
        {"recipients", 8, 0, [&] { return text("") + word(0) + word(0) + text("") + word(check()); }},
        {"count", 9, 15, [] { return ""; }},
        {"inboxes", 10, 0, [] { return ""; }},
        {"status", 11, 0, [] { return ""; }},
        {"shutdown", 12, 0, [] { return ""; }},
    };
    for (const auto &[verb, own, incoming, arguments] : calls)
        if (verb == step.verb && step.options.contains("from"))
            return call(incoming, who + text(handle_of(step.option("from"))) + arguments());
        else if (verb == step.verb)
            return call(own, who + arguments());
    throw std::runtime_error("no such step");
}

void scenario_t::call_daemon(const step_t &step)
{
    const reply_t reply = make_call(step);
    std::vector<std::string> lines = shown_reply(reply, &ids_);
    if (reply.code() == 0 && (step.verb == "list" || step.verb == "recipients"))
        index_check_ = reply.at(step.verb == "list" ? 2 : 1);
    if (step.word(0) == "brief" && lines.size() > 3) {  // the first, how many between, the last
        lines[2] = "  ... " + std::to_string(lines.size() - 3) + " more ...";
        lines.erase(lines.begin() + 3, lines.end() - 1);
    }
    for (const std::string &line : lines)
        say("  = ", line);
}

// call PROCEDURE [HEX]: arguments as they go over the wire.
void scenario_t::call_raw(const step_t &step)
{
    std::string bytes;
    for (size_t n = 1; n < step.words.size(); n++)
        for (size_t at = 0; at + 1 < step.words[n].size(); at += 2)
            bytes += static_cast<char>(std::stoi(step.words[n].substr(at, 2), nullptr, 16));
    const reply_t reply = call(static_cast<uint32_t>(std::stoul(step.word(0))), bytes);
    for (const std::string &line : shown_reply(reply, &ids_))
        say("  = ", line);
}

// fetch NAME: reads a fax as clients do, until an empty chunk comes.
void scenario_t::fetch(const step_t &step)
{
    step_t read = step;
    read.verb = "read";
    std::string fax;
    for (int reads = 1;; reads++) {
        read.options["offset"] = std::to_string(fax.size());
        const reply_t reply = make_call(read);
        if (reply.code() != 0 || reply.chunk().empty()) {
            const auto known = put_.find(fax);
            say("  = ", shown_reply(reply, &ids_)[0]);
            return say("  = ", std::to_string(reads) + " reads, " +
                                   (known == put_.end() ? shown_bytes(fax) : "as put in " + known->second));
        }
        fax += reply.chunk();
    }
}

}  // namespace faxtray
