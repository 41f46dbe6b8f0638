// The string parsed last is kept, cut into its fields, so that a caller can ask for one after the other.
#include "util/version_id.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "util/owned.h"

namespace faxtray {

enum rev_field {
    MARKER,
    MODULE,
    RELEASE,
    MINOR_RELEASE,
    LEVEL,
    BRANCH,
    SEQUENCE,
    DELTA_DATE,
    DELTA_TIME,
    FIELDS
};

static c_string parsed;             // the last string, cut into its fields
static const char *fields[FIELDS];  // point into it; all null when it had too few

static void parse(const char *id)
{
    memset(fields, 0, sizeof fields);
    parsed.reset(strdup(id));
    if (!parsed)
        return;

    // A run of separators counts as one, also at either end.
    const char *found[FIELDS];
    int count = 0;
    char *p = parsed.get() + strspn(parsed.get(), "|");
    while (*p && count < FIELDS) {
        found[count++] = p;
        p += strcspn(p, "|");
        if (*p)
            *p++ = '\0';
        p += strspn(p, "|");
    }
    if (count == FIELDS)
        memcpy(fields, found, sizeof fields);
}

static const char *field_of(const char *id, rev_field field)
{
    if (id && *id)
        parse(id);
    return fields[field];
}

const char *rev_module(const char *id)
{
    return field_of(id, MODULE);
}

const char *rev_release(const char *id)
{
    return field_of(id, RELEASE);
}

const char *rev_minor_release(const char *id)
{
    return field_of(id, MINOR_RELEASE);
}

const char *rev_level(const char *id)
{
    return field_of(id, LEVEL);
}

const char *rev_branch(const char *id)
{
    return field_of(id, BRANCH);
}

const char *rev_sequence(const char *id)
{
    return field_of(id, SEQUENCE);
}

const char *rev_delta_date(const char *id)
{
    return field_of(id, DELTA_DATE);
}

const char *rev_delta_time(const char *id)
{
    return field_of(id, DELTA_TIME);
}

int rev_revinfo(const char *id, char *out, int size)
{
    const char *release = rev_release(id);
    if (!release || size <= 0)
        return 0;
    // A minor release of letters, such as a beta's, follows the release without a dot.
    const char *level = fields[LEVEL], *minor = fields[MINOR_RELEASE];
    size_t room = static_cast<size_t>(size);
    if (isdigit(static_cast<unsigned char>(*minor)))
        snprintf(out, room, "Version %2s.%-5s Release %s.%s", release, level, release, minor);
    else
        snprintf(out, room, "Version %2s.%-5s Release %s%s", release, level, release, minor);
    return static_cast<int>(strlen(out));
}

}  // namespace faxtray
