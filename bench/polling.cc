// Question: what does it cost to ask for news when there is none, and how soon is a new fax seen? Beside it
// the same of Dovecot: NOOP in an open mailbox, and STATUS of one that is not, on a Maildir of as many mails.
//
// Data: inboxes of 1,000, 10,000 and 100,000 faxes, and Maildirs, made below ROOT. faxtrayd runs with process
// id PID and has users fax1000, fax10000 and fax100000, whose inboxes are ROOT/faxN. For each size an imap
// process of Dovecot's is started by itself, without its master, on ROOT/mailN, for the user "mail". It talks
// over a socket pair, faxtrayd over TCP: its NULL call tells what that costs.
//
// Times of unchanged listings are the server's processor time for one, medians of rounds that take turns;
// those of news are the client's, from the request to the end of the reply, medians too.
// Usage: bench_polling PID ROOT CONF. run-polling.sh sets that up.
#include <fcntl.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "protocol/xdr_records.h"
#include "rpc_calls.h"
#include "util/owned.h"

namespace faxtray {

static constexpr int rounds = 21, calls = 300;  // a round's calls of each kind
static constexpr int news = 41;
static constexpr char imap[] = "/usr/lib/dovecot/imap";

static std::string root;
static const passwd *mail_user;

// Makes a file that came i hours after the first, owned by `owner`, elsewhere, and moves it in whole.
static void put(const std::string &path, int i, const char *header, uid_t owner)
{
    const std::string staged = root + "/staged";
    const unique_fd fd(open(staged.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const std::string content = header + std::string(512, '.') + "\n";
    const timespec times[2] = {{1'000'000'000 + i, 0}, {1'000'000'000 + i, 0}};
    if (!fd || write(fd.get(), content.data(), content.size()) < 0 || futimens(fd.get(), times) != 0 ||
        fchown(fd.get(), owner, owner) != 0 || rename(staged.c_str(), path.c_str()) != 0)
        give_up(path.c_str());
}

static std::string fax_path(int faxes, int i)
{
    return root + "/fax" + std::to_string(faxes) + "/rcv" + std::to_string(i) + ".fax";
}

static std::string mail_path(int mails, const char *folder, int i)
{
    return root + "/mail" + std::to_string(mails) + folder + std::to_string(1'000'000'000 + i) +
           ".M1P1.host" + (strcmp(folder, "/cur/") == 0 ? ":2,S" : "");
}

static void put_fax(int faxes, int i)
{
    put(fax_path(faxes, i), i, "no fax", 0);
}

static void put_mail(int mails, const char *folder, int i)
{
    put(mail_path(mails, folder, i), i, "From: a@b\nSubject: fax\n\n", mail_user->pw_uid);
}

// What clients know an inbox by: the sum of the bytes of all its files' names.
static u_int sum_of_names(int faxes, int count)
{
    u_int sum = 0;
    for (int i = 0; i < count; i++)
        for (char c : std::filesystem::path(fax_path(faxes, i)).filename().string())
            sum += static_cast<u_int>(c);
    return sum;
}

// A request for the two oldest faxes if the inbox is not as known: the answer is longer than that nothing has
// changed.
static std::string listing(int faxes, u_int known)
{
    std::string name = "fax" + std::to_string(faxes), empty;
    pw_req_t pw = {name.data(), empty.data(), empty.data(), 0, 0};
    index_req_t request = {&pw, 0, 1, 2, known};
    return make_call(GET_INDEX, reinterpret_cast<xdrproc_t>(xdr_index_req_t), &request);
}

static size_t ask(caller_t &caller, const std::string &call)
{
    caller.send(call);
    for (;;)
        if (const size_t reply = caller.receive())
            return reply;
}

// An imap process, and what it has answered last.
class imap_t {
public:
    imap_t(int mails, const char *conf)
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
            give_up("socketpair");
        fd_.reset(ends[0]);
        const std::string place = "mail_location=maildir:" + root + "/mail" + std::to_string(mails);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(ends[1], 0);
            dup2(ends[1], 1);
            setenv("USER", "mail", 1);
            setenv("HOME", root.c_str(), 1);
            if (setgid(mail_user->pw_gid) == 0 && setuid(mail_user->pw_uid) == 0)
                execl(imap, imap, "-c", conf, "-o", place.c_str(), nullptr);
            give_up("imap");
        }
        close(ends[1]);
        read_until("Logged in");
    }
    ~imap_t() { ask("LOGOUT"); }

    pid_t pid() const { return pid_; }
    const std::string &ask(const std::string &command)
    {
        const std::string line = "a " + command + "\r\n";
        if (write(fd_.get(), line.data(), line.size()) < 0)
            give_up("imap");
        return read_until("a OK");
    }

private:
    const std::string &read_until(const char *end)
    {
        for (answer_.clear(); answer_.find(end) == std::string::npos || answer_.back() != '\n';) {
            char bytes[65536];
            const ssize_t n = read(fd_.get(), bytes, sizeof bytes);
            if (n <= 0)
                give_up("imap");
            answer_.append(bytes, static_cast<size_t>(n));
        }
        return answer_;
    }

    unique_fd fd_;
    pid_t pid_;
    std::string answer_;
};

static clockid_t clock_of(pid_t pid)
{
    clockid_t clock;
    if (clock_getcpuclockid(pid, &clock) != 0)
        give_up("clock_getcpuclockid");
    return clock;
}

// Microseconds of the server's processor time for one call.
static double cost(clockid_t clock, const std::function<void()> &call)
{
    const double begin = now(clock);
    for (int i = 0; i < calls; i++)
        call();
    return 1e6 * (now(clock) - begin) / calls;
}

// Microseconds until the reply.
static double delay(const std::function<void()> &call)
{
    const double begin = now(CLOCK_MONOTONIC);
    call();
    return 1e6 * (now(CLOCK_MONOTONIC) - begin);
}

static void bench(int size, clockid_t daemon, const char *conf)
{
    std::filesystem::create_directories(root + "/fax" + std::to_string(size));
    const std::string maildir = root + "/mail" + std::to_string(size);
    for (const char *folder : {"", "/cur", "/new", "/tmp"}) {
        std::filesystem::create_directories(maildir + folder);
        if (chown((maildir + folder).c_str(), mail_user->pw_uid, mail_user->pw_gid) != 0)
            give_up("chown");
    }
    for (int i = 0; i < size; i++) {
        put_fax(size, i);
        put_mail(size, "/cur/", i);
    }
    sync();

    caller_t caller(daemon_port());
    u_int known = sum_of_names(size, size);
    const std::string null_call = make_call(TRAYD_NULL, nullptr, nullptr);
    std::string known_listing = listing(size, known);
    ask(caller, listing(size, 0));
    const size_t unchanged = ask(caller, known_listing);
    const auto check = [&](bool good) {
        if (!good)
            give_up("an answer is not as expected");
    };
    imap_t opened(size, conf), closed(size, conf);
    opened.ask("SELECT INBOX");
    closed.ask("STATUS INBOX (MESSAGES UNSEEN)");

    std::vector<double> null_costs, listing_costs, noop_costs, status_costs;
    for (int i = 0; i < rounds; i++) {
        null_costs.push_back(cost(daemon, [&] { ask(caller, null_call); }));
        listing_costs.push_back(cost(daemon, [&] { check(ask(caller, known_listing) == unchanged); }));
        noop_costs.push_back(cost(clock_of(opened.pid()), [&] { opened.ask("NOOP"); }));
        status_costs.push_back(
            cost(clock_of(closed.pid()), [&] { closed.ask("STATUS INBOX (MESSAGES UNSEEN)"); }));
    }
    std::vector<double> fax_delays, mail_delays;
    for (int i = 0; i < news; i++) {
        put_fax(size, size + i);
        fax_delays.push_back(delay([&] { check(ask(caller, known_listing) != unchanged); }));
        known_listing = listing(size, known = sum_of_names(size, size + i + 1));
        check(ask(caller, known_listing) == unchanged);
        put_mail(size, "/new/", size + i);
        mail_delays.push_back(delay([&] {
            while (opened.ask("NOOP").find("EXISTS") == std::string::npos)
                continue;
        }));
    }
    printf("%8d %8.1f %8.1f %8.1f %10.1f | %8.1f %8.1f %10.1f\n", size, median(null_costs),
           median(listing_costs), median(listing_costs) - median(null_costs), median(fax_delays),
           median(noop_costs), median(status_costs), median(mail_delays));
    fflush(stdout);
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    using namespace faxtray;
    if (argc != 4 || !(mail_user = getpwnam("mail"))) {
        fprintf(stderr, "usage: %s PID ROOT CONF\n", argv[0]);
        return 2;
    }
    root = argv[2];
    puts("            faxtrayd, us                           | Dovecot, us");
    puts("   faxes     NULL  listing    above    new fax | NOOP       STATUS   new mail");
    for (int size : {1000, 10'000, 100'000})
        bench(size, clock_of(atoi(argv[1])), argv[3]);
}
