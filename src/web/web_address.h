// web_address: where the page is to be found, and what a request says about where it comes from.
#pragma once

#include <string>
#include <vector>

namespace faxtray {

// Where browsers find the page, if --public-url says so.
struct public_url_t {
    std::string origin;     // "https://fax.example.com", as browsers write it; "" if it is not known
    std::string base_path;  // "/", or "/fax/"
    bool secure = false;    // https
};

// Takes "https://HOST[:PORT][/PATH]", or http. False if it is no such URL.
bool parse_public_url(const std::string &text, public_url_t *url);

// "fax", "/fax" and "/fax/" are "/fax/"; "" and "/" are "/". False for anything but letters, digits, "-",
// "_",
// "." and "/" in it.
bool parse_base_path(const std::string &text, std::string *path);

// The part of the path below the base, beginning with "/"; "" if the path is not below it.
std::string below_base(const std::string &path, const std::string &base);

bool is_loopback(const std::string &address);  // an IPv4 address, without port

// Whether a request that changes something comes from our own page. Without a public origin it must name a
// loopback host by which the browser also reached us: a stranger's page whose name was made to resolve to
// 127.0.0.1 names its own.
bool is_own_origin(const std::string &origin, const std::string &host, const public_url_t &url);

// Whom the request comes from: the peer or, if that is a trusted proxy, the last address in X-Forwarded-For
// that is no trusted proxy itself.
std::string client_address(const std::string &peer, const std::string &forwarded_for,
                           const std::vector<std::string> &trusted);

// The value of a cookie, "" if there is none (RFC 6265 section 4.2.1).
std::string cookie_value(const std::string &header, const std::string &name);

}  // namespace faxtray
