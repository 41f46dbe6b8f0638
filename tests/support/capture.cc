#include "support/capture.h"

#include <unistd.h>

#include <cstdlib>

namespace faxtray {

capture::capture(FILE *stream) : stream_(stream), file_(tmpfile())
{
    fflush(stream_);
    saved_ = dup(fileno(stream_));
    if (!file_ || saved_ < 0 || dup2(fileno(file_), fileno(stream_)) < 0)
        abort();
}

capture::~capture()
{
    stop();
    fclose(file_);
}

void capture::stop()
{
    if (saved_ < 0)
        return;
    fflush(stream_);
    dup2(saved_, fileno(stream_));
    close(saved_);
    saved_ = -1;
}

std::string capture::text()
{
    stop();
    std::string text;
    rewind(file_);
    for (int ch; (ch = getc(file_)) != EOF;)
        text += static_cast<char>(ch);
    return text;
}

}  // namespace faxtray
