#include "scenarios/replies.h"

#include <faxtray.h>

#include <cctype>
#include <cstdio>

#include "util/crc.h"

namespace faxtray {

static constexpr const char *types[] = {"RES_REV",          "RES_INDEX",
                                        "RES_COMMIT_INDEX", "RES_FAX_INFO",
                                        "RES_FAX",          "RES_COMMIT_FAX",
                                        "RES_DELIVER",      "RES_UI",
                                        "RES_FAX_COUNT",    "RES_DF",
                                        "RES_STATUS",       "RES_SHUTDOWN",
                                        "RES_DF_INDEX",     "RES_DF_FAX_INFO",
                                        "RES_DF_FAX_COUNT", "RES_COMMIT_DF_INDEX",
                                        "RES_DF_FAX",       "RES_COMMIT_DF_FAX",
                                        "RES_ERROR"};

static std::string quoted(const std::string &bytes)
{
    std::string text = "\"";
    for (const char ch : bytes) {
        char hex[8];
        snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(ch));
        if (ch == '\n')
            text += "\\n";
        else
            text += isprint(static_cast<unsigned char>(ch)) ? std::string(1, ch) : hex;
    }
    return text + '"';
}

std::string shown_bytes(const std::string &bytes)
{
    if (bytes.size() <= 60)
        return quoted(bytes);
    char text[60];
    snprintf(text, sizeof text, "%zu bytes, checksum %08x", bytes.size(),
             crc_val(bytes.data(), bytes.size()));
    return text;
}

static std::string number(const char *what, long value)
{
    return std::string(" ") + what + " " + std::to_string(value);
}

// A file_info_t or a file_node_t.
template <class Fax> static std::string shown_fax(const Fax &fax, std::map<std::string, uint32_t> *ids)
{
    (*ids)[fax.name] = fax.faxid;
    return std::string("  ") + fax.name + number("id", fax.faxid) + number("fax", fax.is_fax) +
           number("pages", fax.pages) + number("size", fax.size) + number("mtime", fax.mtime) + " sender " +
           shown_bytes(fax.sender_fax) + " subaddress " + shown_bytes(fax.subaddress) + " password " +
           shown_bytes(fax.pwd_frame);
}

static std::vector<std::string> shown_list(const av_list_t *list)
{
    std::vector<std::string> lines;
    for (; list; list = list->next) {
        lines.push_back(std::string("  [") + list->key + "]" + number("check", list->check_value));
        for (const av_node_t *node = list->nodes; node; node = node->next)
            lines.push_back(std::string("    ") + node->attr + " = " + quoted(node->value));
    }
    return lines;
}

// The first line follows the type; the others come after it.
static std::vector<std::string> shown_result(const in_res_t &result, std::map<std::string, uint32_t> *ids)
{
    const auto &u = result.in_res_t_u;
    std::vector<std::string> lines;
    switch (result.res_type) {
    case RES_REV:
        return {number("major", u.rev.major) + number("minor", u.rev.minor) + " " + quoted(u.rev.revision)};
    case RES_INDEX:
    case RES_DF_INDEX:
        lines = {u.index ? number("check", u.index->check_value) : " none"};
        for (const file_node_t *node = u.index ? u.index->head : nullptr; node; node = node->next)
            lines.push_back(shown_fax(*node, ids));
        return lines;
    case RES_FAX_INFO:
    case RES_DF_FAX_INFO:
        lines = {u.info ? "" : " none"};
        if (u.info)
            lines.push_back(shown_fax(*u.info, ids));
        return lines;
    case RES_FAX:
    case RES_DF_FAX:
        return {" " + shown_bytes({u.fax.fax_val, u.fax.fax_len})};
    case RES_UI:
        lines = {number("check", u.ui.check_value)};
        for (const ui_entry_t *entry = u.ui.head; entry; entry = entry->next)
            lines.push_back(std::string("  ") + entry->name + " " + quoted(entry->label) +
                            (entry->flag ? number("group", entry->flag) : ""));
        return lines;
    case RES_FAX_COUNT:
    case RES_DF_FAX_COUNT:
        return {" " + std::to_string(u.count)};
    case RES_DF:
    case RES_STATUS:
        lines = shown_list(u.av);
        lines.insert(lines.begin(), u.av ? "" : " none");
        return lines;
    case RES_ERROR:
        return {" " + std::to_string(u.err.code) + number("errno", u.err.sys_errno) + " " +
                quoted(u.err.message)};
    default:
        return {""};
    }
}

std::vector<std::string> shown_reply(const reply_t &reply, std::map<std::string, uint32_t> *ids)
{
    if (reply.accept_stat < 0)
        return {"no reply"};
    if (reply.accept_stat != 0)
        return {"refused," + number("accept_stat", reply.accept_stat)};
    if (reply.result.empty())
        return {"done"};

    in_res_t result = {};
    XDR xdrs;
    xdrmem_create(&xdrs, const_cast<char *>(reply.result.data()), static_cast<u_int>(reply.result.size()),
                  XDR_DECODE);
    std::vector<std::string> lines = {"not a result: " + quoted(reply.result)};
    if (xdr_in_res_t(&xdrs, &result) && result.res_type <= RES_ERROR) {
        lines = shown_result(result, ids);
        lines[0].insert(0, types[result.res_type]);
        if (xdr_getpos(&xdrs) != reply.result.size())
            lines.push_back("and more bytes");
    }
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_in_res_t), reinterpret_cast<char *>(&result));
    return lines;
}

}  // namespace faxtray
