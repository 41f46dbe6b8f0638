// deliveries: deliveries on their way, each carried out by a process of its own.
//
// The server answers a delivery when it has reached everybody, and after all that were asked for before it:
// that may take hours. The worker cannot wait that long, and a second thread could not call inbox_client
// beside it. So the program starts itself once more, with --deliver, for each order; it is told the order
// through a pipe, where the password's hash is seen by nobody, and reports through another. Any thread may
// call.
#pragma once

#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <thread>
#include <vector>

#include "client/inbox_client.h"

namespace faxtray {

struct delivery_order_t {
    std::string hosts;  // as of fax_server_t
    login who;
    std::string inbox, recipient;
    struct fax_t {
        faxid_t id;
        std::string tag;  // of the fax that the user saw under this id; no other is delivered
    };
    std::vector<fax_t> faxes;
};

class deliveries {
public:
    deliveries();
    // Ends the processes. What faxtrayd has begun to deliver it delivers all the same.
    ~deliveries();
    deliveries(const deliveries &) = delete;
    deliveries &operator=(const deliveries &) = delete;

    // Starts an order and returns the number by which to ask for it; "" if too many run, or none can be
    // started.
    std::string begin(const delivery_order_t &order);
    // How far it is: {done, faxes: [{id, tag, state, lines}]}. False if the user has given no such order.
    bool look(const std::string &job, const std::string &user, nlohmann::json *state);

private:
    struct job_t;
    void forget_old(const std::string &user);
    void watch(job_t *job, const std::string &order, std::promise<bool> *started);

    std::mutex mutex_;
    std::map<std::string, std::unique_ptr<job_t>> jobs_;
};

// The body of the process: reads an order from standard input, carries it out, and reports on standard
// output, a line of JSON for each change of a fax's state. Returns the exit status.
int deliver_as_ordered();

}  // namespace faxtray
