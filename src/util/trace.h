// trace: the process's one diagnostic stream, switched and directed by the file TRACES (see TRACES(5)).
//
// A stream is written to while tracing is on, its toggle is on and the stream is open; otherwise the writers
// do nothing, so callers need not ask first. A failure to write is not reported: tracing must not disturb
// what it describes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace faxtray {

// Names the directory in which TRACES is looked for after $ONDRIXHOME, and the one in which trace files are
// made. 1, or 0 when that was done already, when tracing is on, or when a directory is null, empty or too
// long.
int tr_init(const char *exec_dir, const char *work_dir);

// Reads TRACES, if it is newer than when it was last read, and opens, switches or closes the stream as the
// line of the program `name` says. 1, or 0 with a message on standard error: tr_init() was not called, or the
// trace file cannot be opened.
int open_trace_file(const char *name);

// Closes the stream, unless it is a standard one, and forgets the directories. Always 1. Kept: tracing counts
// as on, if it was, so a later tr_init() is refused.
int tr_close();

// Writes the time of day, then the text. Leaves errno alone: callers go on to report their failure.
void trprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));
void tr_puts(const char *text);  // the same, but may change errno

// True when what is written now would reach the stream; spares callers the building of long texts.
bool tr_writing();

// The rest is for the fax system's other programs; none here calls it.

void tr_write(const char *bytes, size_t n);  // the bytes alone, without the time
int tr_putc(int ch);                         // putc(3)'s result; `ch` itself when nothing is written
void trace_print_time();                     // "18:22:48 "
void trace_print_date();                     // " 5-Nov-2026 "
void trflush();                              // whatever the toggle says

// The toggle mutes the open stream while it is 0. It is 1 at first, and again whenever open_trace_file()
// switches tracing on or off.
int tr_set_toggle_on(int flag);  // always 1
int tr_is_toggle_on();           // the flag last set

int tr_is_trace_on();         // 1 while tracing is on, whatever the toggle says, else 0
FILE *tr_get_file_pointer();  // the stream, which stays this module's, or null

// What "%x" shows of a pointer in traces.
inline unsigned pointer_bits(const void *p)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

}  // namespace faxtray
