// A message body of any bytes, as every argument and as the result: a record that decodes is encoded, decoded
// and encoded again to the same bytes; one that does not decode is freed nevertheless.
#pragma once

#include <cstdint>
#include <string>

#include "check.h"
#include "protocol/xdr_records.h"
#include "registry/xdr_regd.h"

namespace faxtray {

// The record's bytes, of which there are at most `room`.
template <class Record>
std::string encoded(bool_t (*routine)(XDR *, Record *) noexcept, Record *record, size_t room)
{
    std::string bytes(room, '\0');
    XDR xdrs;
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(room), XDR_ENCODE);
    check(routine(&xdrs, record));
    bytes.resize(xdr_getpos(&xdrs));
    return bytes;
}

// Decodes one record and encodes it again. Returns the bytes, "" if it does not decode.
template <class Record>
std::string read_record(bool_t (*routine)(XDR *, Record *) noexcept, const void *bytes, size_t n)
{
    Record record = {};
    XDR xdrs;
    xdrmem_create(&xdrs, static_cast<char *>(const_cast<void *>(bytes)), static_cast<u_int>(n), XDR_DECODE);
    std::string result;
    if (routine(&xdrs, &record))
        result = encoded(routine, &record, n + 8);  // the optional form adds a word
    XDR freeing = {};
    freeing.x_op = XDR_FREE;
    check(routine(&freeing, &record));
    return result;
}

template <class... Record>
void read_twice(const void *bytes, size_t n, bool_t (*...routine)(XDR *, Record *) noexcept)
{
    auto one = [&](auto *same) {
        std::string once = read_record(same, bytes, n);
        if (!once.empty())
            check(read_record(same, once.data(), once.size()) == once);
    };
    (one(routine), ...);
}

inline void fuzz_requests(const uint8_t *bytes, size_t n)
{
    if (n > 65536)
        return;
    read_twice(bytes, n, xdr_identity, xdr_index_req_t, xdr_df_index_req_t, xdr_df_info_req_t,
               xdr_client_fax_req_t, xdr_df_fax_req_t, xdr_client_commit_req_t, xdr_df_commit_req_t,
               xdr_client_deliver_req_t, xdr_client_ui_req_t, xdr_in_res_t, xdr_rg_av_req_t, xdr_rg_res_t);
}

}  // namespace faxtray
