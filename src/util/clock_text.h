// clock_text: dates and times as people read them.
#pragma once

#include <cstddef>
#include <ctime>

namespace faxtray {

// ctime(3)'s text of `*t`, or of now when `t` is null or 0, without its newline; "" for a year that ctime
// cannot print. Static buffer.
const char *cv_ctime(const time_t *t);

// The present date ("%x") and time ("%X") as `locale` writes them; either buffer may be null. The process's
// locale is what it was when this returns. 1, or 0 when a text does not fit (its buffer is then empty) or
// there is no memory. For the fax system's other programs; none here calls it.
int cv_get_date_time(const char *locale, char *date, size_t date_len, char *time, size_t time_len);

// "Jan" to "Dec", for tm_mon 0 to 11.
extern const char *const months[12];

}  // namespace faxtray
