// xdr_memory: records in and out of XDR bytes in memory.
#pragma once

#include <gtest/gtest.h>
#include <rpc/rpc.h>

#include <string>

namespace faxtray {

// The record's bytes (at most 8 MiB), or a text that is none when it cannot be encoded.
template <class Routine, class Record> std::string encode(Routine *routine, Record *record)
{
    std::string bytes(8 << 20, '\0');
    XDR xdrs;
    xdrmem_create(&xdrs, bytes.data(), static_cast<u_int>(bytes.size()), XDR_ENCODE);
    bool ok = routine(&xdrs, record);
    bytes.resize(xdr_getpos(&xdrs));
    return ok ? bytes : "not encodable";
}

// Decodes `bytes`, all of them; on failure the record may be half there.
template <class Routine, class Record> bool decode(Routine *routine, Record *record, const std::string &bytes)
{
    XDR xdrs;
    xdrmem_create(&xdrs, const_cast<char *>(bytes.data()), static_cast<u_int>(bytes.size()), XDR_DECODE);
    return routine(&xdrs, record) && xdr_getpos(&xdrs) == bytes.size();
}

template <class Routine, class Record> void free_decoded(Routine *routine, Record *record)
{
    XDR xdrs = {};
    xdrs.x_op = XDR_FREE;
    routine(&xdrs, record);
}

// Expects that no part of `bytes` from their beginning decodes. What was decoded of it is freed, which the
// address sanitizer watches.
template <class Record> void refuse_cut(bool_t (*routine)(XDR *, Record *) noexcept, const std::string &bytes)
{
    for (size_t length = 0; length < bytes.size(); length++) {
        Record record = {};
        EXPECT_FALSE(decode(routine, &record, bytes.substr(0, length))) << length;
        free_decoded(routine, &record);
    }
}

}  // namespace faxtray
