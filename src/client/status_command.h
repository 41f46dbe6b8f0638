// status_command: prints how the fax service is, for people, scripts and Prometheus.
#pragma once

#include <string>
#include <vector>

#include "client/client_session.h"
#include "client/service_status.h"

namespace faxtray {

// Asks all hosts that are named. Needs no session: that there is no server is an answer, too. EXIT_DONE if
// all is well, else EXIT_REFUSED.
exit_status status_command(const options &chosen);

// The statuses in the text format of Prometheus, version 0.0.4, as its node exporter collects from files.
std::string prometheus_text(const std::vector<service_status_t> &statuses);

}  // namespace faxtray
