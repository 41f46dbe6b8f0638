// clock_text: dates and times as people read them.
#pragma once

#include <cstddef>
#include <ctime>

namespace faxtray {

// ctime()'s text of `*t`, or of now when `t` is null or 0, without its newline. Static buffer.
const char *cv_ctime(const time_t *t);

// Now, in `locale`, as date ("%x") and time ("%X"); either buffer may be null. Returns 1, or 0 when a
// text does not fit (its buffer is then empty).
int cv_get_date_time(const char *locale, char *date, size_t date_len, char *time, size_t time_len);

// "Jan" to "Dec", for tm_mon 0 to 11.
extern const char *const months[12];

}  // namespace faxtray
