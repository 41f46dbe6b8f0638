// scenario: runs the steps of a scenario on this (private) host and writes down what each of them led to.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "scenarios/regular.h"
#include "support/wire.h"

namespace faxtray {

// One line of a scenario, taken apart: `put incoming/a.fax pages=2 as Anna`.
struct step_t {
    std::string verb, rest;                      // the first word; what follows it, as written
    std::vector<std::string> words;              // of the rest, without options
    std::map<std::string, std::string> options;  // NAME=VALUE, and "as", "from", "to" and the word after it
    std::string block;                           // the indented lines below

    std::string word(size_t n) const { return n < words.size() ? words[n] : ""; }
    std::string option(const char *name, const std::string &otherwise = "") const;
    uint32_t number(const char *name, uint32_t otherwise) const;
};

step_t parse_step(const std::string &line);

class scenario_t {
public:
    scenario_t();
    ~scenario_t();
    scenario_t(const scenario_t &) = delete;
    scenario_t &operator=(const scenario_t &) = delete;

    // The lines of the scenario, each step's followed by what it led to.
    std::string run(const std::string &script);

private:
    struct verb_t {
        const char *name;
        void (scenario_t::*act)(const step_t &);
    };
    static const verb_t verbs[];

    void take(const step_t &step);
    void say(const std::string &mark, const std::string &text);
    void report_changes();

    // Files
    void put(const step_t &step);
    void write(const step_t &step);
    void append(const step_t &step);
    void age(const step_t &step);
    void add_file(const std::string &path, const std::string &content, const step_t &step);
    void show_files();

    // Programs
    void start(const step_t &step);
    void stop(const step_t &step);
    void restart(const step_t &step);
    void signal(const step_t &step);
    void shell(const step_t &step);
    void set(const step_t &step);
    void registry(const step_t &step);
    void port_mapper(const step_t &step);
    void agent(const step_t &step);
    void show_trace(const step_t &step);
    void fail(const step_t &step);
    void inject(const step_t &failure);
    void report_end(int status);

    // Calls
    void call_daemon(const step_t &step);
    void call_raw(const step_t &step);
    void fetch(const step_t &step);
    reply_t make_call(const step_t &step);
    uint32_t fax_id(const std::string &name) const;
    std::string handle_of(const std::string &inbox) const;

    std::string transcript_;
    regular_t regular_;
    pid_t daemon_ = -1, injector_ = -1;
    bool trace_shown_ = false;
    step_t failure_;                           // to be injected into the step that follows
    time_t clock_ = 1'700'000'000;             // mtime of the file written last
    std::map<std::string, std::string> put_;   // content of files that were put, and their paths
    std::map<std::string, std::string> seen_;  // what was reported of each log so far
    std::map<std::string, uint32_t> ids_;      // as last listed, by name
    uint32_t index_check_ = 0;                 // check value of the last listing
};

}  // namespace faxtray
