// problems: what a check has found, and where.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "check/traps.h"

namespace faxtray {

struct place_t {
    std::string file;  // "": the machine
    long line = 0;     // 0: none
};

struct problem_t {
    place_t place;
    const trap_t *trap;
    std::string text;  // the trap's with its words filled in; may hold any bytes
};

class problems_t {
public:
    // `words` take the places of %1, %2 and so on.
    void add(const trap_t *trap, const place_t &place, std::initializer_list<std::string> words = {});

    // Sorted by file and line, those of the machine last, none twice.
    const std::vector<problem_t> &sorted();

private:
    std::vector<problem_t> problems_;
};

const char *level_name(level_t level);

// Print on standard output: a line each, "FILE:LINE: LEVEL: TEXT [TRAP]", or a JSON array of objects.
void print_problems(const std::vector<problem_t> &problems);
void print_problems_json(const std::vector<problem_t> &problems);

// "1 line", "2 lines"; and with a verb: "1 line is", "2 lines are".
std::string lines_text(long count);
std::string lines_are(long count);

}  // namespace faxtray
