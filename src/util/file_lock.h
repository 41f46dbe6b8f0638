// file_lock: locks on whole files that other processes see, and other hosts too where the file system carries
// locks between hosts, as GlusterFS and NFS do.
//
// A lock belongs to the open file (fcntl(2), "open file description locks"): closing another descriptor of
// the same file does not give it up, as it would with a lock of the process; a forked child shares it until
// it executes a command or closes its copy. It goes with the last of them, however they end; on a network
// file system a moment later, and after a power failure once the servers have given the host up.
#pragma once

namespace faxtray {

// Locks the file, which must be open for writing. Never waits. False with errno: EAGAIN if another has locked
// it.
bool lock_file(int fd);
void unlock_file(int fd);

// Whether lock_file() would fail because another has locked it. The file may be open for reading only.
bool is_locked(int fd);

// The file is locked while this exists, unless others hold it for a second: then it goes without, since no
// stopped process on any host may hold up this one.
class file_locked {
public:
    explicit file_locked(int fd);  // -1: nothing is locked
    ~file_locked();
    file_locked(const file_locked &) = delete;
    file_locked &operator=(const file_locked &) = delete;

private:
    int fd_;
};

// Whether the file of `fd` is on a file system that several hosts may share.
bool is_on_network(int fd);

// While this exists, what we append to the file does not mix with what other hosts append. Network file
// systems do not see to that (O_APPEND writes to where this host believes the end to be): there the file is
// locked, and what was written is at the server before it is unlocked. Elsewhere a single write(2) is enough,
// and nothing is done.
class appending {
public:
    explicit appending(int fd);
    ~appending();

private:
    int fd_;
    file_locked locked_;
};

}  // namespace faxtray
