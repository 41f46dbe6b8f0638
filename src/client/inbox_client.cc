// Each procedure is one call; a failure gets a message that says what the user can do about it. At the end
// are the functions that take several calls.
#include "client/inbox_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "rpc/keep_alive.h"
#include "rpc/timed_client.h"

namespace faxtray {

static constexpr int list_attempts = 3;

// What no honest server exceeds. A false one could keep the client busy until its memory or the user's
// patience ends.
static constexpr size_t max_listed_faxes = 10'000'000;
static constexpr size_t max_listed_text = 512 * 1024 * 1024;       // bytes of names, senders and the like
static constexpr size_t max_message = 4096;                        // bytes of it that are kept
static constexpr u_int trusted_answers = 1000, min_answer = 4096;  // bytes of a fax, on average after so many

// A page with fewer faxes than were asked for is the last, unless the server may have cut it for its length.
static constexpr size_t cut_page_text = 64 * 1024;

// The size listed for all faxes that are larger than the protocol can say.
static constexpr u_int size_unknown = 0xFFFFFFFF;

void inbox_client::destroy(CLIENT *client)
{
    clnt_destroy(client);
}

// XDR only reads what it encodes, so lending it constant text is safe.
static char *lend(const std::string &text)
{
    return const_cast<char *>(text.c_str());
}

inbox_client::inbox_client(login who, int timeout_seconds)
    : login_(std::move(who)), pw_{}, timeout_{timeout_seconds, 0}
{
    // The record that every request begins with. Its strings are only lent: nobody frees them.
    static const std::string none;
    pw_ = {lend(login_.user), lend(login_.password_hash), lend(none), 0, login_.check_value};
}

void inbox_client::set_password_hash(const std::string &hash)
{
    login_.password_hash = hash;
    pw_.password = lend(login_.password_hash);
}

bool inbox_client::fail(client_failure::kind_t kind, std::string message)
{
    failure_ = {kind, 0, 0, std::move(message)};
    return false;
}

// Connecting.

// Why no connection was made, and what to do about it. libtirpc has one error for many causes, so the answer
// to "is it the port mapper or faxtrayd that is missing?" is put together from three of its fields.
std::string inbox_client::connect_problem() const
{
    const auto error = rpc_createerr;
    const std::string cause = clnt_sperrno(error.cf_error.re_status);
    // A port mapper that runs but knows no faxtrayd, and a faxtrayd that is registered but gone, are the two
    // mistakes that people make; each gets its own words.
    const bool refused = error.cf_error.re_errno == ECONNREFUSED;
    switch (error.cf_stat) {
    case RPC_UNKNOWNHOST:
        return "no IPv4 address for host " + host_ + ": check its name";
    case RPC_TIMEDOUT:
        return "host " + host_ + " does not answer within " + std::to_string(timeout_.tv_sec) +
               " s: check its name, the network and firewalls";
    case RPC_PROGNOTREGISTERED:
        return "no faxtrayd registered at host " + host_ + ": try rpcinfo -t " + host_ + " " +
               std::to_string(IN_PROG);
    case RPC_PMAPFAILURE:
        if (error.cf_error.re_status != RPC_SYSTEMERROR)
            return "the port mapper at host " + host_ + " does not answer: " + cause;
        if (refused)
            return "no port mapper at host " + host_ + ": start rpcbind there, then faxtrayd";
        break;
    default:
        if (refused)
            return "faxtrayd at host " + host_ +
                   " refuses connections: it has ended, or listens on another address of that host";
        break;
    }
    return "can't reach host " + host_ + ": " + strerror(error.cf_error.re_errno);
}

bool inbox_client::connect(const std::string &host)
{
    host_ = host;
    client_.reset(timed_clnt_create(host.c_str(), IN_PROG, IN_VERS, timeout_));
    if (!client_)
        return fail(client_failure::TRANSPORT, connect_problem());
    // An answer may take hours, and the server's host vanish meanwhile.
    int fd = -1;
    if (!clnt_control(client_.get(), CLGET_FD, reinterpret_cast<char *>(&fd)) || !set_keep_alive(fd))
        return fail(client_failure::TRANSPORT, std::string("can't watch the connection: ") + strerror(errno));
    return true;
}

// Calling.

bool inbox_client::call_failed(u_long procedure, clnt_stat status)
{
    // The server does what it was asked for, even if nobody waits for the answer any more. To ask again does
    // no harm, except for a delivery: the recipients would get the fax twice.
    const std::string advice = procedure == DELIVER_FAX
                                   ? "the fax may be delivered all the same, so find out before you try again"
                                   : "try again";
    if (status == RPC_TIMEDOUT)
        return fail(client_failure::TRANSPORT, "faxtrayd at host " + host_ + " has not answered within " +
                                                   std::to_string(timeout_.tv_sec) + " s: it may be busy, " +
                                                   advice);
    // Whatever else it was, the connection cannot be used any more; libtirpc may know the system's reason.
    rpc_err error = {};
    clnt_geterr(client_.get(), &error);
    std::string message = "faxtrayd at host " + host_ + ": " + clnt_sperrno(status);
    if (status == RPC_CANTSEND || status == RPC_CANTRECV) {
        if (error.re_errno)
            message += std::string(": ") + strerror(error.re_errno);
        message += ": the connection was lost, " + advice;
    }
    return fail(client_failure::TRANSPORT, message);
}

static std::string text_of(const char *text)
{
    return text ? text : "";
}

// Messages of the server end in newlines; where they are printed decides about line ends here.
static std::string without_line_end(std::string text)
{
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// Makes one call. If the reply is of the expected type, `take` gets it and its result is the call's; the
// reply is freed when this returns. A reply of any other type is a failure.
template <class Request, class Take> bool inbox_client::call(u_long procedure,
                                                             bool_t (*encode)(XDR *, Request *) noexcept,
                                                             Request *request, res_type_t expected, Take take)
{
    if (!client_)
        return fail(client_failure::TRANSPORT, "not connected");
    failure_ = {};

    in_res_t result = {};
    // The reply may be half decoded when the call fails; what it has allocated is freed in any case.
    const auto xdr_result = reinterpret_cast<xdrproc_t>(xdr_in_res_t);
    struct releaser {
        in_res_t *result;
        ~releaser() { xdr_free(reinterpret_cast<xdrproc_t>(xdr_in_res_t), result); }
    } release{&result};

    clnt_stat status = clnt_call(client_.get(), procedure, reinterpret_cast<xdrproc_t>(encode), request,
                                 xdr_result, reinterpret_cast<char *>(&result), timeout_);
    if (status != RPC_SUCCESS)
        return call_failed(procedure, status);
    if (result.res_type == expected)
        return take(result);
    if (result.res_type != RES_ERROR)
        return fail(client_failure::TRANSPORT, "faxtrayd at host " + host_ +
                                                   " answered out of turn (result " +
                                                   std::to_string(result.res_type) + ")");
    failure_ = {client_failure::SERVER, result.err.code, result.err.sys_errno,
                without_line_end(text_of(result.err.message).substr(0, max_message))};
    return false;
}

template <class Take> bool inbox_client::call_with_identity(u_long procedure, res_type_t expected, Take take)
{
    pw_req_t *pw = &pw_;
    return call(procedure, xdr_identity, &pw, expected, take);
}

// Takes the reply of a procedure that only succeeds or fails.
static bool nothing(in_res_t &)
{
    return true;
}

static bool_t xdr_nothing(XDR *, void *) noexcept
{
    return TRUE;
}

bool inbox_client::null_call()
{
    if (!client_)
        return fail(client_failure::TRANSPORT, "not connected");
    failure_ = {};
    // libtirpc's xdr_void takes no arguments, so it cannot be called through an xdrproc_t.
    const auto none = reinterpret_cast<xdrproc_t>(xdr_nothing);
    clnt_stat status = clnt_call(client_.get(), TRAYD_NULL, none, nullptr, none, nullptr, timeout_);
    return status == RPC_SUCCESS || call_failed(TRAYD_NULL, status);
}

bool inbox_client::trayd_rev(revision *rev)
{
    return call(TRAYD_REV, xdr_nothing, static_cast<void *>(nullptr), RES_REV, [&](in_res_t &result) {
        *rev = {result.rev.major, result.rev.minor, text_of(result.rev.revision)};
        return true;
    });
}

// The wire's record as C++ values; null texts become "".
static fax_entry entry_of(const file_info_t &info)
{
    return {info.faxid,
            text_of(info.name),
            text_of(info.sender_fax),
            text_of(info.subaddress),
            text_of(info.pwd_frame),
            info.pages,
            info.is_fax != 0,
            info.size,
            info.mtime};
}

bool inbox_client::get_index(const inbox_ref &inbox, const index_slice &slice, listing *list)
{
    auto take = [&](in_res_t &result) {
        *list = {};
        if (!result.index)
            return true;
        list->check_value = result.index->check_value;
        for (const file_node_t *node = result.index->head; node; node = node->next)
            list->faxes.push_back(entry_of(*node));
        return true;
    };
    // On the wire the id is signed here and unsigned everywhere else; the bits are the same.
    int start = static_cast<int>(slice.start);
    if (inbox) {
        df_index_req_t request = {&pw_, lend(*inbox), start, slice.how, slice.count, slice.check_value};
        return call(GET_DF_INDEX, xdr_df_index_req_t, &request, RES_DF_INDEX, take);
    }
    index_req_t request = {&pw_, start, slice.how, slice.count, slice.check_value};
    return call(GET_INDEX, xdr_index_req_t, &request, RES_INDEX, take);
}

bool inbox_client::commit_index(const inbox_ref &inbox)
{
    if (!inbox)
        return call_with_identity(COMMIT_INDEX, RES_COMMIT_INDEX, nothing);
    df_info_req_t request = {&pw_, lend(*inbox)};
    return call(COMMIT_DF_INDEX, xdr_df_info_req_t, &request, RES_COMMIT_DF_INDEX, nothing);
}

bool inbox_client::get_fax_info(const inbox_ref &inbox, std::optional<fax_entry> *oldest)
{
    auto take = [&](in_res_t &result) {
        oldest->reset();
        if (result.info)
            *oldest = entry_of(*result.info);
        return true;
    };
    if (!inbox)
        return call_with_identity(GET_FAX_INFO, RES_FAX_INFO, take);
    df_info_req_t request = {&pw_, lend(*inbox)};
    return call(GET_DF_FAX_INFO, xdr_df_info_req_t, &request, RES_DF_FAX_INFO, take);
}

bool inbox_client::get_fax(const inbox_ref &inbox, faxid_t id, u_int size, u_int offset,
                           const byte_sink &sink)
{
    // The bytes go to the receiver straight from the reply, which is freed after that: one chunk in memory at
    // a time.
    auto take = [&](in_res_t &result) {
        return sink(result.fax.bytes, result.fax.length) ||
               fail(client_failure::STOPPED, "stopped by the receiver");
    };
    if (inbox) {
        df_fax_req_t request = {&pw_, lend(*inbox), id, size, offset};
        return call(GET_DF_FAX, xdr_df_fax_req_t, &request, RES_DF_FAX, take);
    }
    client_fax_req_t request = {&pw_, id, size, offset};
    return call(GET_FAX, xdr_client_fax_req_t, &request, RES_FAX, take);
}

bool inbox_client::commit_fax(const inbox_ref &inbox, faxid_t id)
{
    if (inbox) {
        df_commit_req_t request = {&pw_, lend(*inbox), id};
        return call(COMMIT_DF_FAX, xdr_df_commit_req_t, &request, RES_COMMIT_DF_FAX, nothing);
    }
    client_commit_req_t request = {&pw_, id};
    return call(COMMIT_FAX, xdr_client_commit_req_t, &request, RES_COMMIT_FAX, nothing);
}

bool inbox_client::deliver_fax(const std::string &inbox, faxid_t id, const std::string &recipient)
{
    client_deliver_req_t request = {&pw_, lend(inbox), id, lend(recipient)};
    return call(DELIVER_FAX, xdr_client_deliver_req_t, &request, RES_DELIVER, nothing);
}

bool inbox_client::get_ui(u_int check_value, recipient_list *list)
{
    // The server reads only the check value of this record.
    client_ui_req_t request = {&pw_, nullptr, 0, 0, nullptr, check_value};
    return call(GET_UI, xdr_client_ui_req_t, &request, RES_UI, [&](in_res_t &result) {
        *list = {result.ui.check_value, {}};
        for (const ui_entry_t *entry = result.ui.head; entry; entry = entry->next)
            list->recipients.push_back({text_of(entry->name), text_of(entry->label), entry->flag == 1});
        return true;
    });
}

bool inbox_client::get_fax_count(const inbox_ref &inbox, u_int *count)
{
    auto take = [&](in_res_t &result) {
        *count = result.count;
        return true;
    };
    if (!inbox)
        return call_with_identity(GET_FAX_COUNT, RES_FAX_COUNT, take);
    df_info_req_t request = {&pw_, lend(*inbox)};
    return call(GET_DF_FAX_COUNT, xdr_df_info_req_t, &request, RES_DF_FAX_COUNT, take);
}

std::vector<std::string> comma_separated(const std::string &text)
{
    std::vector<std::string> names;
    for (size_t start = 0; start < text.size();) {
        size_t end = std::min(text.find(',', start), text.size());
        // Only the ends are trimmed: a description may contain blanks.
        size_t first = text.find_first_not_of(" \t", start);
        if (first < end) {
            size_t last = text.find_last_not_of(" \t", end - 1);
            names.push_back(text.substr(first, last - first + 1));
        }
        start = end + 1;
    }
    return names;
}

static settings_list settings_of(const av_list_t *list)
{
    settings_list settings;
    for (const av_node_t *node = list ? list->nodes : nullptr; node; node = node->next)
        settings.emplace_back(text_of(node->attr), text_of(node->value));
    return settings;
}

bool inbox_client::get_df(std::vector<incoming_inbox> *inboxes)
{
    return call_with_identity(GET_DF, RES_DF, [&](in_res_t &result) {
        // The reply is a list of settings: names and handles, each one text with commas, in the same order.
        std::vector<std::string> names, handles;
        for (const auto &[attribute, value] : settings_of(result.av)) {
            if (attribute == "forwarder")
                names = comma_separated(value);
            if (attribute == "forwarder_handle")
                handles = comma_separated(value);
        }
        inboxes->clear();
        // The handles count: an inbox without a description can still be used.
        for (size_t i = 0; i < handles.size(); i++)
            inboxes->push_back({i < names.size() ? names[i] : "", handles[i]});
        return true;
    });
}

bool inbox_client::get_status(settings_list *status)
{
    return call_with_identity(GET_STATUS, RES_STATUS, [&](in_res_t &result) {
        *status = settings_of(result.av);
        return true;
    });
}

bool inbox_client::trayd_shutdown()
{
    return call_with_identity(TRAYD_SHUTDOWN, RES_SHUTDOWN, nothing);
}

// Whole inboxes and faxes.

static size_t text_size(const fax_entry &fax)
{
    return fax.name.size() + fax.sender.size() + fax.subaddress.size() + fax.pwd_frame.size();
}

// Adds the faxes of one more page that are not in `listed` yet. The server's page begins with the last fax of
// the page before: a page starts at a fax, not after it.
bool inbox_client::append_page(const inbox_ref &inbox, listing *all, listed_t *listed, u_int check_value)
{
    // An empty listing starts at the oldest fax, any other at the last one listed.
    const faxid_t last = all->faxes.empty() ? 0 : all->faxes.back().id;
    listing page;
    if (!get_index(inbox, {last, 1, MAX_INDEX_COUNT, check_value}, &page))
        return false;
    size_t text = 0;
    const size_t before = all->faxes.size();
    for (fax_entry &fax : page.faxes) {
        text += text_size(fax);
        if (listed->ids.insert(fax.id).second)
            all->faxes.push_back(std::move(fax));
    }
    all->check_value = page.check_value;
    listed->text += text;
    // What brings nothing new is the end, too: a false server may repeat itself for ever.
    const bool full = page.faxes.size() >= static_cast<size_t>(MAX_INDEX_COUNT) || text >= cut_page_text;
    listed->whole = !full || all->faxes.size() == before;
    if (all->faxes.size() > max_listed_faxes || listed->text > max_listed_text)
        return fail(client_failure::TRANSPORT,
                    "faxtrayd at host " + host_ + " lists more than any inbox holds (" +
                        std::to_string(all->faxes.size()) + " faxes, " + std::to_string(listed->text) +
                        " bytes of names, and no end): given up");
    return true;
}

bool inbox_client::list(const inbox_ref &inbox, listing *all)
{
    for (int attempt = 0; attempt < list_attempts; attempt++) {
        *all = {};
        listed_t listed;
        bool answered = true;
        while (answered && !listed.whole)
            answered = append_page(inbox, all, &listed);
        if (answered)
            return true;
        // The fax that ended the last page has been removed or has got a new id: start again.
        bool ids_changed = failure_.kind == client_failure::SERVER && !all->faxes.empty() &&
                           (failure_.code == IE_INVALID || failure_.code == IE_STALE);
        if (!ids_changed)
            return false;
    }
    return false;
}

bool inbox_client::list_after(const inbox_ref &inbox, faxid_t last, u_int check_value, listing *later)
{
    // What pages are appended to begins with the fax after which they come.
    *later = {};
    later->faxes.emplace_back().id = last;
    listed_t listed;
    listed.ids.insert(last);
    bool answered = append_page(inbox, later, &listed, check_value);
    while (answered && !listed.whole)
        answered = append_page(inbox, later, &listed);
    later->faxes.pop_front();
    return answered;
}

bool inbox_client::find(const inbox_ref &inbox, faxid_t id, fax_entry *fax)
{
    listing one;
    if (!get_index(inbox, {id, 1, 1, 0}, &one))
        return false;
    // The server answers with the fax asked for or with an error, but a file is going to be named after it.
    if (one.faxes.empty() || one.faxes[0].id != id) {
        failure_ = {client_failure::SERVER, IE_INVALID, 0, "no fax of that id"};
        return false;
    }
    *fax = one.faxes[0];
    return true;
}

bool inbox_client::fetch(const inbox_ref &inbox, const fax_entry &fax, const byte_sink &sink)
{
    if (fax.size == size_unknown)
        return fail(client_failure::MISMATCH,
                    "it has 4 GiB or more, and cannot be fetched whole: copy it from the server's disk");
    const std::string listed = std::to_string(fax.size) + " bytes that were listed: list it again";
    // The file may be replaced on the server while it is read. Its size is all there is to go by, so exactly
    // that many bytes are passed on, and a fax of another size is a failure.
    u_int got = 0, chunk = 0;
    auto counted = [&](const char *bytes, size_t n) {
        chunk = static_cast<u_int>(n);
        return n > fax.size - got || sink(bytes, n);  // too many: judged below, and not passed on
    };
    for (u_int answers = 1; got < fax.size; answers++) {
        if (!get_fax(inbox, fax.id, MAX_READ_SIZE, got, counted))
            return false;
        if (chunk == 0)
            return fail(client_failure::MISMATCH,
                        "it ended after " + std::to_string(got) + " of the " + listed);
        if (chunk > fax.size - got)
            return fail(client_failure::MISMATCH, "it is longer than the " + listed);
        got += chunk;
        if (answers >= trusted_answers && got / answers < min_answer)
            return fail(client_failure::TRANSPORT, "faxtrayd at host " + host_ +
                                                       " sends too little at a time: " + std::to_string(got) +
                                                       " of " + std::to_string(fax.size) + " bytes in " +
                                                       std::to_string(answers) + " answers: given up");
    }
    return true;
}

}  // namespace faxtray
