// faxtray-web: the inboxes of faxtrayd in a browser.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>

#include "rpc/listen_address.h"
#include "util/command_output.h"
#include "util/standard_options.h"
#include "web/web_api.h"

namespace faxtray {

static constexpr const char *footer = R"(
It talks plain HTTP: a web server in front of it, as nginx or Caddy, adds TLS. faxtray-web(8) has examples.)";

enum exit_code { DONE = 0, WRONG_USE = 2, FAILED = 4 };

namespace {

struct command_line {
    web_options_t web;
    std::string listen = "127.0.0.1:8351", base_path, public_url;
    bool deliver = false;
};

}  // namespace

static void add_options(CLI::App *app, command_line *chosen)
{
    app->add_option("-H,--host", chosen->web.hosts, "Host of faxtrayd, or several with the same faxes")
        ->type_name("HOST[,HOST...]")
        ->capture_default_str();
    app->add_option("--listen", chosen->listen, "IPv4 address and port to serve at")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    app->add_option("--base-path", chosen->base_path, "Path under which the page is found (default: /)")
        ->type_name("PATH");
    app->add_option("--public-url", chosen->public_url, "Where browsers find the page: https://HOST[/PATH]")
        ->type_name("URL");
    app->add_option("--trusted-proxy", chosen->web.trusted_proxies,
                    "Address of a proxy whose X-Forwarded-For counts; may be repeated")
        ->type_name("ADDRESS");
    app->add_flag("--allow-empty-passwords", chosen->web.allow_empty_passwords,
                  "Let users without a password log in, with any");
    app->add_flag("--deliver", chosen->deliver)->group("");  // its own child: see deliveries.h
}

// Why the options make no sense together, or null. Completes them otherwise.
static const char *complete(command_line *chosen, sockaddr_in *address)
{
    public_url_t &url = chosen->web.url;
    if (!parse_listen_address(chosen->listen.c_str(), address) || address->sin_port == 0)
        return "--listen takes an IPv4 address and a port, as 127.0.0.1:8351";
    if (!chosen->public_url.empty() && !chosen->base_path.empty())
        return "--public-url names the base path, too: leave out --base-path";
    if (!chosen->public_url.empty() && !parse_public_url(chosen->public_url, &url))
        return "--public-url takes https://HOST[:PORT][/PATH]";
    if (chosen->public_url.empty() && !parse_base_path(chosen->base_path, &url.base_path))
        return "--base-path takes letters, digits and any of -_./";
    if (!url.secure && ntohl(address->sin_addr.s_addr) >> 24 != 127)
        return "passwords would cross the network in clear: serve at a loopback address, or behind a proxy "
               "with "
               "TLS and --public-url https://...";
    return nullptr;
}

// A connection each for many browsers, and files for cached faxes.
static void raise_descriptor_limit()
{
    rlimit limit;
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 8192);
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// Serves until a signal ends it.
static int serve(const command_line &chosen, const sockaddr_in &address)
{
    // All threads inherit the mask, so that only the one that waits gets them.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    raise_descriptor_limit();
    const stdout_on_stderr no_output;  // of the decoder's messages

    web_api api(chosen.web);
    http_server server([&](const http_request &request) { return api.answer(request); }, security_headers());
    if (!server.listen(address)) {
        fprintf(stderr, "faxtray-web: can't listen at %s: %s\n", printable(chosen.listen).c_str(),
                strerror(errno));
        return FAILED;
    }
    fprintf(stderr, "faxtray-web: serving at http://%s%s\n", printable(chosen.listen).c_str(),
            chosen.web.url.base_path.c_str());
    std::jthread waiting([&] {
        int signal = 0;
        sigwait(&ending, &signal);
        server.stop();
    });
    server.serve();
    return DONE;
}

static int parse_and_run(int argc, char **argv)
{
    command_line chosen;
    CLI::App app("Shows the inboxes of faxtrayd in a browser.", "faxtray-web");
    app.footer(footer);
    app.set_version_flag("--version", version_text("faxtray-web"), "Print the version and exit");
    add_options(&app, &chosen);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? DONE : WRONG_USE;
    }
    if (chosen.deliver)
        return deliver_as_ordered();
    sockaddr_in address;
    if (const char *why_not = complete(&chosen, &address)) {
        fprintf(stderr, "faxtray-web: %s\n", why_not);
        return WRONG_USE;
    }
    return serve(chosen, address);
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    return faxtray::run_command(argc, argv, faxtray::parse_and_run, faxtray::FAILED);
}
