#include "web/web_address.h"

#include <arpa/inet.h>

#include <algorithm>

#include "util/text.h"

namespace faxtray {

static constexpr char letters_and_digits[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

static bool has_only(std::string_view text, const std::string &characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

bool parse_base_path(const std::string &text, std::string *path)
{
    if (!has_only(text, std::string(letters_and_digits) + "-_./"))
        return false;
    *path = "/" + text + "/";
    for (size_t at; (at = path->find("//")) != std::string::npos;)
        path->erase(at, 1);
    return true;
}

bool parse_public_url(const std::string &text, public_url_t *url)
{
    const size_t scheme_end = text.find("://");
    if (scheme_end == std::string::npos)
        return false;
    const std::string scheme = text.substr(0, scheme_end);
    const size_t host_begin = scheme_end + 3, host_end = std::min(text.find('/', host_begin), text.size());
    std::string host = text.substr(host_begin, host_end - host_begin);
    std::transform(host.begin(), host.end(), host.begin(), [](unsigned char c) { return tolower(c); });
    const size_t colon = std::min(host.find(':'), host.size());
    std::string port = host.substr(colon);  // with its colon
    host.resize(colon);
    if ((scheme != "https" && scheme != "http") || host.empty() ||
        !has_only(host, std::string(letters_and_digits) + "-._") || port == ":" ||
        (!port.empty() && !has_only(port.substr(1), "0123456789")))
        return false;
    // Browsers leave out the port that a scheme implies.
    if (port == (scheme == "https" ? ":443" : ":80"))
        port.clear();
    *url = {scheme + "://" + host + port, "/", scheme == "https"};
    return parse_base_path(text.substr(host_end), &url->base_path);
}

std::string below_base(const std::string &path, const std::string &base)
{
    return path.starts_with(base) ? path.substr(base.size() - 1) : "";
}

bool is_loopback(const std::string &address)
{
    in_addr parsed;
    return inet_pton(AF_INET, address.c_str(), &parsed) == 1 && ntohl(parsed.s_addr) >> 24 == 127;
}

bool is_own_origin(const std::string &origin, const std::string &host, const public_url_t &url)
{
    if (!url.origin.empty())
        return origin == url.origin;
    const std::string name = host.substr(0, host.rfind(':'));
    return origin == "http://" + host && (name == "localhost" || is_loopback(name));
}

std::string client_address(const std::string &peer, const std::string &forwarded_for,
                           const std::vector<std::string> &trusted)
{
    const auto is_trusted = [&](const std::string &address) {
        return std::find(trusted.begin(), trusted.end(), address) != trusted.end();
    };
    std::string address = peer;
    // From the end: what a proxy has not appended itself may be the client's invention.
    for (std::string_view rest = forwarded_for; is_trusted(address) && !rest.empty();) {
        const size_t comma = rest.rfind(',');
        const std::string_view last = comma == std::string_view::npos ? rest : rest.substr(comma + 1);
        rest = comma == std::string_view::npos ? "" : rest.substr(0, comma);
        const std::string named(stripped(last));
        unsigned char bytes[sizeof(in6_addr)];
        if (inet_pton(AF_INET, named.c_str(), bytes) != 1 && inet_pton(AF_INET6, named.c_str(), bytes) != 1)
            break;
        address = named;
    }
    return address;
}

std::string cookie_value(const std::string &header, const std::string &name)
{
    for (size_t at = 0; at < header.size();) {
        const size_t end = std::min(header.find(';', at), header.size());
        const std::string_view pair = stripped(std::string_view(header).substr(at, end - at));
        if (pair.starts_with(name) && pair.substr(name.size()).starts_with("="))
            return std::string(pair.substr(name.size() + 1));
        at = end + 1;
    }
    return "";
}

}  // namespace faxtray
