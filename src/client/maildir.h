// maildir: messages put into a Maildir, each once, whatever becomes of it there: people read messages, move
// them to other folders and delete them, and none of these comes again.
//
// Which messages were put there is in its file "faxtray-delivered", a line with the id for each; nothing is
// ever removed from it. The files, for a message of the id ID:
//
//   tmp/TIME.ID.faxtray    being written or, once ID is in the record, whole and on its way to new/
//   new/TIME.ID.faxtray    delivered
//
// So after a crash at any moment the next run knows what to do with a message in tmp/: to give it its name in
// new/ if it is in the record, else to remove it and write it again.
#pragma once

#include <cstdio>
#include <ctime>
#include <string>
#include <unordered_set>

#include "util/owned.h"

namespace faxtray {

class maildir {
public:
    // The functions that return bool return false with the reason on standard error.

    // Makes the directory if it is missing, and what is missing in it; one that holds other things is
    // refused. Then nobody else puts messages there by this module until the object is gone.
    bool open(const std::string &path);
    // Whether a message of that id (36 characters, no "/") has been put there.
    bool has(const std::string &id) const { return delivered_.contains(id); }
    // Begins a message, which became mail at `received`. To be written to what is returned; null if it
    // failed.
    FILE *begin(const std::string &id, time_t received);
    bool deliver();  // puts the message there, whole
    void drop();     // or gives it up
    // Waits until what was delivered is on the disk under its name. Call it once, last.
    bool finish();

    ~maildir() { drop(); }

private:
    bool complain(const std::string &name) const;
    bool make_directories();
    bool read_record();
    bool record(const std::string &id);
    bool recover();
    std::string in(const char *directory, const std::string &name) const;

    std::string path_;
    unique_fd record_;  // open for reading and writing, locked
    off_t record_end_ = 0;
    std::unordered_set<std::string> delivered_;
    std::string name_, id_;  // of the message that was begun; "" for none
    time_t received_ = 0;
    file_ptr message_;
};

}  // namespace faxtray
