#include "util/clock_text.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/owned.h"

namespace faxtray {

const char *const months[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

const char *cv_ctime(const time_t *t)
{
    static char text[64];
    time_t when = t && *t ? *t : time(nullptr);
    const char *line = ctime(&when);  // null for a year that an int cannot hold
    snprintf(text, sizeof text, "%s", line ? line : "");
    text[strcspn(text, "\n")] = '\0';
    return text;
}

// gcc warns of "%x", whose year has two digits in some locales. The locale's own form is what callers want.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"

static bool put_date(char *out, size_t size, const struct tm &now)
{
    return strftime(out, size, "%x", &now) > 0;
}

#pragma GCC diagnostic pop

static bool put_time(char *out, size_t size, const struct tm &now)
{
    return strftime(out, size, "%X", &now) > 0;
}

int cv_get_date_time(const char *locale, char *date, size_t date_len, char *time, size_t time_len)
{
    // Copied: the next setlocale() may overwrite its answer.
    const char *current = setlocale(LC_TIME, nullptr);
    c_string previous(current ? strdup(current) : nullptr);
    if (!previous)
        return 0;
    setlocale(LC_TIME, locale);  // a locale that is not installed changes nothing

    time_t when = ::time(nullptr);
    struct tm now = {};
    localtime_r(&when, &now);
    bool fits = true;
    if (date && date_len > 0 && !put_date(date, date_len, now)) {
        date[0] = '\0';
        fits = false;
    }
    if (time && time_len > 0 && !put_time(time, time_len, now)) {
        time[0] = '\0';
        fits = false;
    }
    setlocale(LC_TIME, previous.get());
    return fits;
}

}  // namespace faxtray
