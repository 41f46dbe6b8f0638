// One table says for each request what it needs: a session, and for changes the session's token and our own
// page as its origin. A route is only called when it has that.
#include "web/web_api.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <thread>

#include "client/password.h"
#include "util/command_output.h"
#include "web/fax_views.h"
#include "web/web_files.h"

namespace faxtray {

using nlohmann::json;

static constexpr size_t cache_bytes = 64 * 1024 * 1024;
static constexpr int slice = MAX_INDEX_COUNT;      // faxes of an answer
static constexpr size_t most_faxes_at_once = 500;  // to deliver or to remove
static constexpr size_t most_user_name = 256;      // bytes
static constexpr std::chrono::seconds failed_login_delay{1};
static constexpr char cookie_name[] = "faxtray_session";

struct web_api::call_t {
    const http_request &request;
    web_session_t session;
    json body;  // of a POST
};

struct web_api::route_t {
    const char *method, *path;
    http_answer (web_api::*run)(call_t *call);
    enum { LOGIN, SESSION, QUIET } needs;  // QUIET: a session, whose hour of idleness goes on
};

const web_api::route_t web_api::routes[] = {
    {"POST", "/api/login", &web_api::login_route, route_t::LOGIN},
    {"POST", "/api/logout", &web_api::logout_route, route_t::SESSION},
    {"GET", "/api/session", &web_api::session_route, route_t::QUIET},
    {"GET", "/api/faxes", &web_api::faxes_route, route_t::SESSION},
    {"GET", "/api/fax", &web_api::fax_route, route_t::SESSION},
    {"GET", "/api/page.png", &web_api::page_route, route_t::SESSION},
    {"GET", "/api/thumbnail.png", &web_api::thumbnail_route, route_t::SESSION},
    {"GET", "/api/download", &web_api::download_route, route_t::SESSION},
    {"GET", "/api/recipients", &web_api::recipients_route, route_t::SESSION},
    {"POST", "/api/deliver", &web_api::deliver_route, route_t::SESSION},
    {"GET", "/api/job", &web_api::job_route, route_t::QUIET},
    {"POST", "/api/remove", &web_api::remove_route, route_t::SESSION},
};

// Answers.

std::vector<std::pair<std::string, std::string>> security_headers()
{
    return {{"Content-Security-Policy", "default-src 'self'; base-uri 'none'; form-action 'self'; "
                                        "frame-ancestors 'none'; object-src 'none'"},
            {"X-Content-Type-Options", "nosniff"},
            {"Referrer-Policy", "no-referrer"},
            {"X-Frame-Options", "DENY"},
            {"Cross-Origin-Resource-Policy", "same-origin"}};
}

// The one place where strangers' text gets into an answer: bytes that are no UTF-8 become U+FFFD. As HTML
// they are escaped by the page, which sets them as text.
static http_answer json_answer(int status, const json &value)
{
    http_answer answer =
        text_answer(status, "application/json", value.dump(-1, ' ', false, json::error_handler_t::replace));
    answer.headers = {{"Cache-Control", "no-store"}};
    return answer;
}

static http_answer refusal(const web_problem_t &why)
{
    return json_answer(why.status, {{"error", why.word}, {"message", why.message}});
}

static http_answer bad_request(const char *message)
{
    return refusal({400, "bad_request", message});
}

static http_answer picture(const cached_ptr &png)
{
    http_answer answer;
    answer.type = "image/png";
    answer.bytes = {png, &png->bytes};
    answer.headers = {{"Cache-Control", "no-store"}};
    return answer;
}

// Requests.

template <class Number> static bool parse_number(const std::string &text, Number *number)
{
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && rest == text.data() + text.size();
}

static inbox_ref inbox_of(const std::string &handle)
{
    return handle.empty() ? inbox_ref() : inbox_ref(handle);
}

// The fax that a request is about. 0 is no id: to the server it means the oldest fax.
static bool parse_ref(const http_request &request, fax_ref_t *ref)
{
    *ref = {inbox_of(request.parameter("inbox")), 0, request.parameter("tag")};
    return parse_number(request.parameter("id"), &ref->id) && ref->id != 0;
}

// A text of the body; "" if there is none, or one with a null byte, where it would end on its way to the
// server.
static std::string text_of(const json &body, const char *name)
{
    const auto found = body.find(name);
    const std::string text = found != body.end() && found->is_string() ? found->get<std::string>() : "";
    return text.find('\0') == std::string::npos ? text : "";
}

// The faxes of a POST. False if they make no sense.
static bool parse_refs(const json &body, std::vector<fax_ref_t> *refs)
{
    const auto faxes = body.find("faxes");
    if (faxes == body.end() || !faxes->is_array() || faxes->empty() || faxes->size() > most_faxes_at_once)
        return false;
    for (const json &fax : *faxes) {
        if (!fax.is_object() || !fax.contains("id") || !fax["id"].is_number_unsigned())
            return false;
        const auto id = fax["id"].get<uint64_t>();
        if (id == 0 || id > UINT32_MAX)
            return false;
        refs->push_back({inbox_of(text_of(body, "inbox")), static_cast<faxid_t>(id), text_of(fax, "tag")});
    }
    return true;
}

web_api::web_api(web_options_t options)
    : options_(std::move(options)), server_{options_.hosts, desk_}, cache_(cache_bytes)
{
}

static http_answer file_answer(const http_request &request, const std::string &path)
{
    const web_file_t *file = path.empty() ? nullptr : find_web_file(path.substr(1));
    if (!file)
        return refusal({404, "not_found", "There is nothing here."});
    if (request.method != "GET")
        return bad_request("Only to be read.");
    http_answer answer = text_answer(200, file->type, std::string(file->bytes));
    answer.headers = {{"Cache-Control", "no-cache"}};
    return answer;
}

http_answer web_api::answer(const http_request &request)
{
    // The base path without its slash: relative addresses of the page would not work from there.
    if (request.path + "/" == options_.url.base_path) {
        http_answer moved = text_answer(308, "text/plain", "");
        moved.headers = {{"Location", options_.url.base_path}};
        return moved;
    }
    const std::string path = below_base(request.path, options_.url.base_path);
    if (!path.starts_with("/api/"))
        return file_answer(request, path);
    const auto *found = std::find_if(std::begin(routes), std::end(routes),
                                     [&](const route_t &route) { return path == route.path; });
    if (found == std::end(routes))
        return refusal({404, "not_found", "There is no such request."});
    if (request.method != found->method)
        return refusal({405, "bad_request", "Not by this method."});

    const bool changes = request.method == "POST";
    call_t call = {request, {}, json()};
    if (changes && !is_own_origin(request.origin, request.host, options_.url))
        return refusal({403, "token", "The request does not come from this page."});
    if (found->needs != route_t::LOGIN) {
        // What the page asks by itself does not keep a session alive.
        const bool used = found->needs == route_t::SESSION && request.parameter("check").empty();
        if (!sessions_.find(cookie_value(request.cookie, cookie_name), used, web_clock::now(), &call.session))
            return refusal({401, "session", "Log in."});
        if (changes && request.token != call.session.token)
            return refusal({403, "token", "The request does not come from this page."});
    }
    if (changes) {
        call.body = json::parse(request.body, nullptr, false);
        if (!call.body.is_object())
            return bad_request("The body is no JSON object.");
    }
    http_answer made = (this->*found->run)(&call);
    if (made.status == 401)  // the server no longer accepts the password
        sessions_.end(call.session.id);
    return made;
}

// Logging in and out.

// Asks the server whether it accepts this user with this password.
problem web_api::check_login(const login &who, bool *valid)
{
    server_link link(server_, who);
    return link.call([&](inbox_client &client) {
        std::vector<incoming_inbox> inboxes;
        // It checks the password first, so whoever is refused as no forwarder has passed.
        *valid = client.get_df(&inboxes) || client.failure().code == IE_NOT_DF;
        return *valid || client.failure().kind == client_failure::SERVER;
    });
}

http_answer web_api::login_route(call_t *call)
{
    const http_request &request = call->request;
    const auto began = web_clock::now();
    login who = {text_of(call->body, "user"), "", 0};
    const std::string password = text_of(call->body, "password");
    if (who.user.size() > most_user_name)  // the failed attempts of many such would fill the memory
        return bad_request("No user has a name that long.");
    const std::string address = client_address(request.peer, request.forwarded_for, options_.trusted_proxies);
    if (!limits_.begin(address, who.user, began))
        return refusal({429, "locked", "Too many failed attempts. Try again in ten minutes."});

    bool valid = false, open = false;  // open: any password would do
    problem failed;
    bool hashed = false;
    if (!desk_.run([&] { hashed = hash_password(password, &who.password_hash); }))
        failed = busy_problem();
    if (!failed && hashed)
        failed = check_login(who, &valid);
    if (!failed && valid && !options_.allow_empty_passwords)
        failed = check_login({who.user, random_id(), 0}, &open);  // no password has a hash that long
    if (failed) {
        limits_.succeeded(address, who.user, false);
        return refusal(*failed);
    }
    if (!valid || open) {
        fprintf(stderr, "faxtray-web: %s from %s cannot log in: %s\n", printable(who.user).c_str(),
                printable(address).c_str(), open ? "the user has no password" : "wrong user or password");
        // All failures take the same time, a whole number of seconds, however soon they were certain.
        const auto taken = std::chrono::floor<std::chrono::seconds>(web_clock::now() - began);
        std::this_thread::sleep_until(began + taken + failed_login_delay);
        return refusal({401, "login", "The user name or the password is wrong."});
    }
    limits_.succeeded(address, who.user, true);
    const web_session_t session = sessions_.begin(who, web_clock::now());
    http_answer answer = json_answer(200, {{"user", who.user}, {"token", session.token}});
    answer.headers.emplace_back(
        "Set-Cookie", std::string(cookie_name) + "=" + session.id + "; Path=" + options_.url.base_path +
                          "; HttpOnly; SameSite=Strict" + (options_.url.secure ? "; Secure" : ""));
    return answer;
}

http_answer web_api::logout_route(call_t *call)
{
    sessions_.end(call->session.id);
    cache_.forget(call->session.who.user);
    http_answer answer = json_answer(200, json::object());
    answer.headers.emplace_back("Set-Cookie", std::string(cookie_name) + "=; Path=" + options_.url.base_path +
                                                  "; HttpOnly; SameSite=Strict; Max-Age=0");
    return answer;
}

http_answer web_api::session_route(call_t *call)
{
    json inboxes = json::array();
    server_link link(server_, call->session.who);
    const problem failed = link.call([&](inbox_client &client) {
        std::vector<incoming_inbox> forwarded;
        if (!client.get_df(&forwarded))
            return client.failure().code == IE_NOT_DF;
        for (const incoming_inbox &inbox : forwarded) {
            u_int count = 0;
            // An inbox that cannot be read does not hide the others.
            const bool counted = client.get_fax_count(inbox.handle, &count);
            if (!counted && client.failure().kind == client_failure::TRANSPORT)
                return false;
            inboxes.push_back({{"inbox", inbox.handle},
                               {"name", inbox.description},
                               {"count", counted ? json(count) : json()}});
        }
        return true;
    });
    if (failed)
        return refusal(*failed);
    return json_answer(200, {{"user", call->session.who.user},
                             {"token", call->session.token},
                             {"host", options_.hosts},
                             {"inboxes", inboxes}});
}

// Lists.

static json row_of(const fax_entry &fax)
{
    return {{"id", fax.id},
            {"tag", tag_of(fax)},
            {"name", fax.name},
            {"sender", fax.sender},
            {"subaddress", fax.subaddress},
            {"pages", fax.pages < 0 ? json() : json(fax.pages)},
            {"size", fax.size},
            {"mtime", fax.mtime},
            {"is_fax", fax.is_fax},
            {"problem", !fax.is_fax}};
}

// Finds the newest fax. The server lists forwards from a fax that is known, or from the oldest, so the
// session remembers which was the newest. 0 for an empty inbox. IE_UNCHANGED if the check value still holds.
static bool find_newest(inbox_client &client, const inbox_ref &inbox, u_int check_value, faxid_t *newest)
{
    for (faxid_t at = *newest;;) {
        listing page;
        if (!client.get_index(inbox, {at, 1, slice, check_value}, &page)) {
            const client_failure &why = client.failure();
            if (at == 0 || why.kind != client_failure::SERVER || why.code != IE_INVALID)
                return false;
            at = 0;  // it was removed
            continue;
        }
        check_value = 0;  // the following pages are wanted in any case
        *newest = page.faxes.empty() ? 0 : page.faxes.back().id;
        if (*newest == at || page.faxes.empty())
            return true;
        at = *newest;
    }
}

namespace {

// The place in a list that a request names.
struct list_place_t {
    std::string check_host;  // whose check value it is: each host has its own
    u_int check_value = 0;
    faxid_t before = 0;  // 0: the list begins with the newest fax
    std::string tag;     // of that fax; "" where it does not matter
};

// A part of a list, newest last, as the server sends it.
struct list_part_t {
    bool unchanged = false;
    listing faxes, earlier;  // earlier: the first fax and, if there is one, that before it
    u_int count = 0;         // of all faxes
};

}  // namespace

// False if it makes no sense.
static bool parse_place(const http_request &request, list_place_t *place)
{
    const std::string &check = request.parameter("check"), &before = request.parameter("before");
    const size_t dot = std::min(check.find('.'), check.size());
    place->check_host = check.substr(std::min(dot + 1, check.size()));
    place->tag = request.parameter("tag");
    return (check.empty() || parse_number(check.substr(0, dot), &place->check_value)) &&
           (before.empty() || (parse_number(before, &place->before) && place->before != 0));
}

// Gets the part; `newest` is a guess at the newest fax, and then knows better.
static bool get_part(inbox_client &client, const inbox_ref &inbox, const list_place_t &place, faxid_t *newest,
                     list_part_t *part)
{
    faxid_t last = place.before;
    if (last == 0) {
        const u_int check_value = place.check_host == client.host() ? place.check_value : 0;
        if (!find_newest(client, inbox, check_value, newest))
            return part->unchanged = client.failure().code == IE_UNCHANGED;
        last = *newest;
    }
    // Whether anything precedes the part is asked: how many faxes it holds depends on their texts, too.
    const std::deque<fax_entry> &faxes = part->faxes.faxes;
    return client.get_index(inbox, {last, 0, slice, 0}, &part->faxes) &&
           client.get_fax_count(inbox, &part->count) &&
           (faxes.empty() || client.get_index(inbox, {faxes[0].id, 0, 2, 0}, &part->earlier));
}

http_answer web_api::faxes_route(call_t *call)
{
    const inbox_ref inbox = inbox_of(call->request.parameter("inbox"));
    list_place_t place;
    if (!parse_place(call->request, &place))
        return bad_request("No such place in a list.");
    faxid_t newest = call->session.newest[inbox.value_or("")];
    list_part_t part;
    std::string host;
    server_link link(server_, call->session.who);
    const problem failed = link.call([&](inbox_client &client) {
        host = client.host();
        return get_part(client, inbox, place, &newest, &part);
    });
    if (failed)
        return refusal(*failed);
    if (part.unchanged)
        return json_answer(200, {{"unchanged", true}});
    // The server's list ends with the fax that it was asked for, which has been shown already.
    std::deque<fax_entry> &listed = part.faxes.faxes;
    if (place.before != 0) {
        if (listed.empty() || (!place.tag.empty() && tag_of(listed.back()) != place.tag))
            return refusal(*changed_problem());
        listed.pop_back();
    } else {
        sessions_.set_newest(call->session.id, inbox.value_or(""), newest);
    }
    json faxes = json::array();
    for (auto fax = listed.rbegin(); fax != listed.rend(); ++fax)
        faxes.push_back(row_of(*fax));
    return json_answer(200, {{"check", std::to_string(part.faxes.check_value) + "." + host},
                             {"count", part.count},
                             {"more", part.earlier.faxes.size() > 1},
                             {"faxes", std::move(faxes)}});
}

// Faxes.

http_answer web_api::fax_route(call_t *call)
{
    fax_ref_t ref;
    if (!parse_ref(call->request, &ref))
        return bad_request("No fax is named.");
    server_link link(server_, call->session.who);
    fax_view_t view = {link, cache_, ref};
    json details;
    const problem failed = view_details(&view, &details);
    return failed ? refusal(*failed) : json_answer(200, details);
}

http_answer web_api::page_route(call_t *call)
{
    fax_ref_t ref;
    long page = 0;
    if (!parse_ref(call->request, &ref) || !parse_number(call->request.parameter("page"), &page) || page < 1)
        return bad_request("No page is named.");
    server_link link(server_, call->session.who);
    fax_view_t view = {link, cache_, ref};
    cached_ptr png;
    const problem failed = view_page(&view, page, &png);
    return failed ? refusal(*failed) : picture(png);
}

http_answer web_api::thumbnail_route(call_t *call)
{
    fax_ref_t ref;
    if (!parse_ref(call->request, &ref))
        return bad_request("No fax is named.");
    server_link link(server_, call->session.who);
    fax_view_t view = {link, cache_, ref};
    cached_ptr png;
    const problem failed = view_thumbnail(&view, &png);
    return failed ? refusal(*failed) : picture(png);
}

// As a value of RFC 8187: everything but letters, digits and few signs is escaped.
static std::string escaped_name(const std::string &name)
{
    std::string escaped;
    for (const char c : name) {
        const bool plain = isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_';
        char code[4] = {c, '\0'};
        if (!plain)
            snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
        escaped += code;
    }
    return escaped;
}

http_answer web_api::download_route(call_t *call)
{
    static const std::map<std::string, std::string> types = {
        {"fax", "application/octet-stream"}, {"pdf", "application/pdf"}, {"tiff", "image/tiff"}};
    fax_ref_t ref;
    const std::string &form = call->request.parameter("as");
    const auto type = types.find(form);
    if (!parse_ref(call->request, &ref) || type == types.end())
        return bad_request("No fax, or no form of it, is named.");
    server_link link(server_, call->session.who);
    fax_view_t view = {link, cache_, ref};
    cached_ptr document;
    std::string name;
    if (const problem failed = view_document(&view, form, &document, &name))
        return refusal(*failed);
    http_answer answer;
    answer.type = type->second;
    answer.file = {document, &document->file};
    answer.file_size = document->file_size;
    answer.headers = {{"Cache-Control", "no-store"},
                      {"Content-Disposition", "attachment; filename*=UTF-8''" + escaped_name(name)}};
    return answer;
}

http_answer web_api::remove_route(call_t *call)
{
    std::vector<fax_ref_t> refs;
    if (!parse_refs(call->body, &refs))
        return bad_request("No faxes are named.");
    server_link link(server_, call->session.who);
    json faxes = json::array();
    for (const fax_ref_t &ref : refs) {
        fax_entry fax;
        problem failed = find_shown_fax(link, ref, &fax);
        if (!failed)
            failed = link.call([&](inbox_client &client) { return client.commit_fax(ref.inbox, ref.id); });
        if (failed && failed->status == 401)
            return refusal(*failed);
        const char *state = !failed ? "removed" : failed->word == "changed" ? "changed" : "failed";
        faxes.push_back({{"id", ref.id}, {"state", state}, {"message", failed ? failed->message : ""}});
    }
    return json_answer(200, {{"faxes", faxes}});
}

// Deliveries.

http_answer web_api::recipients_route(call_t *call)
{
    recipient_list list;
    server_link link(server_, call->session.who);
    const problem failed = link.call([&](inbox_client &client) { return client.get_ui(0, &list); });
    if (failed)
        return refusal(*failed);
    json recipients = json::array();
    for (const recipient &who : list.recipients)
        recipients.push_back({{"name", who.name}, {"label", who.label}, {"group", who.is_group}});
    return json_answer(200, {{"recipients", recipients}});
}

http_answer web_api::deliver_route(call_t *call)
{
    std::vector<fax_ref_t> refs;
    delivery_order_t order = {options_.hosts,
                              call->session.who,
                              text_of(call->body, "inbox"),
                              text_of(call->body, "recipient"),
                              {}};
    if (!parse_refs(call->body, &refs) || order.inbox.empty() || order.recipient.empty())
        return bad_request("An inbox, a recipient and faxes are needed.");
    for (const fax_ref_t &ref : refs)
        order.faxes.push_back({ref.id, ref.tag});
    const std::string job = deliveries_.begin(order);
    return job.empty() ? refusal({503, "busy", "Too many deliveries are running. Try again later."})
                       : json_answer(202, {{"job", job}});
}

http_answer web_api::job_route(call_t *call)
{
    json state;
    if (!deliveries_.look(call->request.parameter("id"), call->session.who.user, &state))
        return refusal({404, "not_found", "There is no such delivery."});
    return json_answer(200, state);
}

}  // namespace faxtray
