// How many faxes a second does the daemon deliver, each in a process of its own? One forwarder delivers the
// one fax of an incoming inbox to one user's inbox again and again, and waits for each reply. What was
// delivered is removed each time, which is not measured.
// Usage: bench_rpc_delivery FORWARDER USER FILE: faxtrayd runs on this host, and the user gets the fax as
// FILE. run-rpc.sh sets that up, with everything on a tmpfs, where fsync costs nothing.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "client/inbox_client.h"
#include "rpc_calls.h"

namespace faxtray {

static constexpr int runs = 15;
static constexpr int deliveries = 100;  // a run

[[noreturn]] static void fail(const inbox_client &client)
{
    fprintf(stderr, "%s\n", client.failure().message.c_str());
    exit(1);
}

static int bench(const char *forwarder, const char *user, const char *delivered)
{
    inbox_client client({.user = forwarder, .password_hash = ""});
    std::vector<incoming_inbox> inboxes;
    listing faxes;
    if (!client.connect("localhost") || !client.get_df(&inboxes) || inboxes.empty() ||
        !client.list(inboxes[0].handle, &faxes) || faxes.faxes.empty())
        fail(client);
    const fax_entry &fax = faxes.faxes[0];

    std::vector<double> rates;
    for (int run = 0; run < runs; run++) {
        double seconds = 0;
        for (int i = 0; i < deliveries; i++) {
            const double begin = now(CLOCK_MONOTONIC);
            if (!client.deliver_fax(inboxes[0].handle, fax.id, user))
                fail(client);
            seconds += now(CLOCK_MONOTONIC) - begin;
            if (!std::filesystem::remove(delivered))
                give_up(delivered);
        }
        rates.push_back(deliveries / seconds);
    }
    printf("deliveries a second of a fax of %u bytes, median of %d runs: %.0f\n", fax.size, runs,
           median(rates));
    return 0;
}

}  // namespace faxtray

int main(int argc, char *argv[])
{
    if (argc != 4) {
        fprintf(stderr, "usage: %s FORWARDER USER FILE\n", argv[0]);
        return 2;
    }
    return faxtray::bench(argv[1], argv[2], argv[3]);
}
