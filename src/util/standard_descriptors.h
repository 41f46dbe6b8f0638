// standard_descriptors: makes sure that descriptors 0, 1 and 2 are taken before anything else is opened.
#pragma once

namespace faxtray {

// The first act of every program. Whoever starts it may have closed standard input, output or error; the next
// file or socket would get that number, and messages would be written into it. A closed one is opened on
// /dev/null, in a way that using it still fails with EBADF. False, with a message on standard error if that
// is open, when /dev/null is not to be had.
bool hold_standard_descriptors();

}  // namespace faxtray
