// user_directory: where a user's programs keep their files, by the XDG base directories of desktops.
#pragma once

#include <string>

namespace faxtray {

// The directory that the environment variable names, if that is an absolute path, or else $HOME/`below_home`;
// "" if there is neither. No "/" at the end. It may be missing, and anybody's.
std::string user_directory(const char *variable, const char *below_home);

// The directory "faxtray" in there, for our user alone. It is made if it is missing, and so are those above
// it, though only in a directory of ours: root with a user's HOME would make one that the user cannot write
// to. "" if it or the one above it is somebody else's, it is a link, or nothing can be written.
std::string private_directory(const char *variable, const char *below_home);

}  // namespace faxtray
