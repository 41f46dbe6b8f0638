// scenario: runs the steps of a scenario on this (private) host and writes down what each of them led to.
#pragma once

#include <string>

namespace faxtray {

// The lines of the scenario, each step's followed by what it led to. Once a process: the host is used up by
// then.
std::string run_scenario(const std::string &script);

}  // namespace faxtray
