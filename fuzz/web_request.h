// What a browser may claim, or an administrator mistype: addresses, cookies and whole requests. Nobody is
// logged in, so no request of a user's is answered, whatever it says.
#pragma once

#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <string>

#include "check.h"
#include "web/web_api.h"

namespace faxtray {

// A public URL that is taken is the same when it is written anew.
inline void check_url(const std::string &text)
{
    public_url_t url, again;
    if (!parse_public_url(text, &url))
        return;
    check(parse_public_url(url.origin + url.base_path, &again));
    check(again.origin == url.origin && again.base_path == url.base_path);
    check(below_base(url.base_path + "x", url.base_path) == "/x");
}

inline void fuzz_web_request(const uint8_t *bytes, size_t n)
{
    if (n > 8192)
        return;
    std::array<std::string, 9> lines;  // the last has the rest
    size_t line = 0;
    for (size_t at = 0; at < n; at++)
        if (bytes[at] == '\n' && line + 1 < lines.size())
            line++;
        else
            lines[line].push_back(static_cast<char>(bytes[at]));
    const auto &[method, path, name, value, cookie, origin, host, forwarded, body] = lines;

    for (const std::string &text : lines)
        check_url(text);
    check(cookie_value(cookie, "faxtray_session").find(';') == std::string::npos);
    in_addr parsed;
    const std::string client = client_address("127.0.0.1", forwarded, {"127.0.0.1"});
    check(inet_pton(AF_INET, client.c_str(), &parsed) == 1 || client.find(':') != std::string::npos);

    static web_api api([] {
        web_options_t options;
        options.hosts = "127.0.0.1";
        return options;
    }());
    const http_request request = {method, path, {{name, value}}, body, "127.0.0.1",
                                  cookie, "",   origin,          host, forwarded};
    const http_answer answer = api.answer(request);
    check(answer.status != 200 || (!path.starts_with("/api/") && method == "GET"));
}

}  // namespace faxtray
