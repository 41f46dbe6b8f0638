// trace: the process's one diagnostic stream, switched and directed by the file TRACES.
//
// Every writer is a silent no-op while tracing is off, so callers need not ask first. trprintf leaves
// errno as it found it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace faxtray {

// Names the two directories tracing works with. 1, or 0 when already initialised, when tracing is on,
// or when a directory is null or empty.
int tr_init(const char *exec_dir, const char *work_dir);

// Reads TRACES for `name` and opens, switches or closes the stream accordingly. 1, or 0 when not
// initialised or when the file named there cannot be opened.
int open_trace_file(const char *name);

// Closes the stream and forgets the directories. Kept: Trace_on stays, so a later tr_init is refused.
int tr_close();

void trprintf(const char *format, ...) __attribute__((format(printf, 1, 2)));  // time, then the text
void tr_puts(const char *text);                                                // time, then the text
void tr_write(const char *bytes, size_t n);                                    // the bytes alone
int tr_putc(int ch);
void trace_print_time();
void trace_print_date();
void trflush();
int tr_set_toggle_on(int flag);
int tr_is_toggle_on();
int tr_is_trace_on();
FILE *tr_get_file_pointer();

// True when what is written now would reach a stream; spares callers the making of long texts.
bool tr_writing();

// What "%x" shows of a pointer.
inline unsigned pointer_bits(const void *p)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

}  // namespace faxtray
