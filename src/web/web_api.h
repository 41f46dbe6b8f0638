// web_api: the requests that the page makes, and their answers; docs/web-api.md lists them.
#pragma once

#include <string>
#include <vector>

#include "web/deliveries.h"
#include "web/http_server.h"
#include "web/login_limits.h"
#include "web/page_cache.h"
#include "web/server_link.h"
#include "web/sessions.h"
#include "web/web_address.h"

namespace faxtray {

struct web_options_t {
    std::string hosts = "localhost";  // as of fax_server_t
    public_url_t url = {"", "/", false};
    std::vector<std::string> trusted_proxies;
    bool allow_empty_passwords = false;
};

// Header lines of all answers.
std::vector<std::pair<std::string, std::string>> security_headers();

class web_api {
public:
    explicit web_api(web_options_t options);

    http_answer answer(const http_request &request);  // any thread may call

    struct call_t;  // a request on its way through here
    struct route_t;

private:
    static const route_t routes[];
    http_answer login_route(call_t *call);
    http_answer logout_route(call_t *call);
    http_answer session_route(call_t *call);
    http_answer faxes_route(call_t *call);
    http_answer fax_route(call_t *call);
    http_answer page_route(call_t *call);
    http_answer thumbnail_route(call_t *call);
    http_answer download_route(call_t *call);
    http_answer recipients_route(call_t *call);
    http_answer deliver_route(call_t *call);
    http_answer job_route(call_t *call);
    http_answer remove_route(call_t *call);

    problem check_login(const login &who, bool *valid);

    const web_options_t options_;
    worker desk_;
    fax_server_t server_;
    sessions sessions_;
    login_limits limits_;
    page_cache cache_;
    deliveries deliveries_;
};

}  // namespace faxtray
