// process_tag: which process of which host something belongs to, where hosts share a directory.
#pragma once

namespace faxtray {

const char *host_name();  // of this host, without its "/", which no name of a file may have
const char *boot_id();    // another for each boot of the machine; "-" if it cannot be told

// "PID-XXXXXXXX", the second part made of the two above: for names of files that no other process makes, also
// not one of the same number on another host. Static buffer; another in a child.
const char *process_tag();

}  // namespace faxtray
