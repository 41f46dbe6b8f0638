#include "deliver/mail_encoding.h"

#include <cerrno>
#include <cstring>

#include "log/exception_log.h"
#include "log/log_and_trace.h"
#include "util/line_encoding.h"

namespace faxtray {

int encode_base64(FILE *in, FILE *out)
{
    if (base64_lines(in, out))
        return 1;
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "encode_base64: Problem reading image: %s\n", strerror(errno));
    return 0;
}

int encode_uuencode(FILE *in, FILE *out)
{
    if (uuencode_lines(in, out))
        return 1;
    log_and_trace({ELOG_WARNING, ELOG_FILE}, "encode_uuencode: Problem reading image: %s\n", strerror(errno));
    return 0;
}

}  // namespace faxtray
