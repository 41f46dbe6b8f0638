#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <sstream>

#include "support/capture.h"
#include "util/trace.h"

namespace faxtray {

trace_on::trace_on()
{
    scoped_env home("ONDRIXHOME", dir_.path().c_str());
    dir_.write("TRACES", "test on\n");
    if (!tr_init(dir_.path().c_str(), dir_.path().c_str()) || !open_trace_file("test"))
        abort();
}

// Without TRACES the stream is switched off; tr_close alone would leave Trace_on set.
trace_on::~trace_on()
{
    scoped_env home("ONDRIXHOME", dir_.path().c_str());
    unlink((dir_ / "TRACES").c_str());
    open_trace_file("test");
    tr_close();
}

static bool has_time(const std::string &line)
{
    static const char form[] = "00:00:00 ";
    if (line.size() < sizeof form - 1)
        return false;
    for (size_t i = 0; form[i]; i++)
        if (form[i] == '0' ? !isdigit(static_cast<unsigned char>(line[i])) : line[i] != form[i])
            return false;
    return true;
}

std::string trace_on::text() const
{
    trflush();
    std::istringstream lines(read_file(dir_ / "trace_test"));
    std::string text;
    for (std::string line; std::getline(lines, line);)
        text += (has_time(line) ? line.substr(9) : line) + "\n";
    return text;
}

}  // namespace faxtray
