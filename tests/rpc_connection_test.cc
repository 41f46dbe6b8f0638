// What connections are made of: an address to listen on, records from any pieces, replies in pieces, and who
// gives way to newcomers.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "rpc/connection_table.h"
#include "rpc/listen_address.h"
#include "rpc/record_assembler.h"
#include "rpc/record_encoder.h"

namespace faxtray {
namespace {

std::string mark(uint32_t length, bool last)
{
    const uint32_t word = htonl(length | (last ? 0x80000000U : 0));
    return {reinterpret_cast<const char *>(&word), sizeof word};
}

// `record` in fragments of random lengths, 0 among them.
std::string fragmented(const std::string &record, std::mt19937 &random)
{
    std::string stream;
    for (size_t at = 0;;) {
        const size_t n = random() % 4 == 0 ? 0 : random() % (record.size() - at + 1);
        const bool last = at + n == record.size() && random() % 2 == 0;
        stream += mark(static_cast<uint32_t>(n), last) + record.substr(at, n);
        at += n;
        if (last)
            return stream;
    }
}

TEST(ListenAddress, IsAnAddressAPortOrBothAndNothingElse)
{
    auto read = [](const char *text) -> std::string {
        sockaddr_in address;
        return !parse_listen_address(text, &address)
                   ? "none"
                   : std::string(inet_ntoa(address.sin_addr)) + " " + std::to_string(ntohs(address.sin_port));
    };
    const char *const rows[][2] = {{"", "0.0.0.0 0"},
                                   {":7000", "0.0.0.0 7000"},
                                   {"127.0.0.1", "127.0.0.1 0"},
                                   {"10.0.0.1:65535", "10.0.0.1 65535"}};
    for (const auto &[text, expected] : rows)
        EXPECT_EQ(read(text), expected);
    for (const char *text :
         {":", ":0", ":65536", ":+7", ":7 ", ":7:8", "7000", "10.0.0", " 10.0.0.1", "10.0.0.1:", "localhost",
          "[::1]:7000", "224.0.0.1", "255.255.255.255", "10.0.0.256"})
        EXPECT_EQ(read(text), "none") << text;
}

TEST(RecordAssembler, FindsEveryRecordInAnyFragmentsAndPieces)
{
    std::mt19937 random(1);
    std::vector<std::string> sent, found;
    std::string stream;
    for (int i = 0; i < 500; i++) {
        sent.push_back(std::string(random() % 300, static_cast<char>(i)));
        stream += fragmented(sent.back(), random);
    }
    record_assembler assembler(100000);
    for (size_t at = 0; at < stream.size();) {
        const size_t n = std::min<size_t>(1 + random() % 700, stream.size() - at);
        ASSERT_TRUE(assembler.take(stream.data() + at, n));
        at += n;
        while (assembler.is_whole()) {
            found.emplace_back(assembler.record(), assembler.length());
            ASSERT_TRUE(assembler.next());
        }
    }
    EXPECT_EQ(sent, found);
    EXPECT_FALSE(assembler.has_begun());
}

TEST(RecordAssembler, RefusesLongRecordsByTheirMarks)
{
    const auto takes = [](const std::string &stream) {
        return record_assembler(100).take(stream.data(), stream.size());
    };
    EXPECT_TRUE(takes(mark(96, true)));
    EXPECT_FALSE(takes(mark(97, true)));
    EXPECT_FALSE(takes(mark(0x7fffffff, false)));
    EXPECT_FALSE(takes(mark(50, false) + std::string(50, 'x') + mark(43, true)));
    std::string empty_fragments;
    for (int i = 0; i < 26; i++)
        empty_fragments += mark(0, false);
    EXPECT_FALSE(takes(empty_fragments));
}

// A result of runs of bytes, each of its own length.
struct runs_t {
    std::vector<std::string> runs;
};

bool_t xdr_runs(XDR *xdrs, runs_t *result)
{
    for (std::string &run : result->runs) {
        char *bytes = run.data();
        u_int length = static_cast<u_int>(run.size());
        if (!xdr_bytes(xdrs, &bytes, &length, ~0U))
            return FALSE;
    }
    return TRUE;
}

rpc_msg reply_with(runs_t *runs)
{
    rpc_msg reply = {};
    reply.rm_xid = 77;
    reply.rm_direction = REPLY;
    reply.rm_reply.rp_stat = MSG_ACCEPTED;
    reply.acpted_rply.ar_stat = SUCCESS;
    reply.acpted_rply.ar_results.where = reinterpret_cast<char *>(runs);
    reply.acpted_rply.ar_results.proc = reinterpret_cast<xdrproc_t>(xdr_runs);
    return reply;
}

TEST(RecordEncoder, SendsWhatLibtirpcWouldAndCopiesNoLongRun)
{
    record_encoder encoder;
    for (const size_t length : {size_t{0}, size_t{5}, size_t{8191}, size_t{8192}, size_t{262143}}) {
        runs_t runs{{"first", std::string(length, 'a'), std::string(length, 'b'), "last"}};
        rpc_msg reply = reply_with(&runs);
        std::vector<char> plain(1 << 20);
        XDR xdrs;
        xdrmem_create(&xdrs, plain.data(), static_cast<u_int>(plain.size()), XDR_ENCODE);
        ASSERT_TRUE(xdr_replymsg(&xdrs, &reply));
        const u_int size = xdr_getpos(&xdrs);

        std::string sent;
        bool lent = false;
        for (const iovec &piece : encoder.encode(&reply, plain.size())) {
            sent.append(static_cast<const char *>(piece.iov_base), piece.iov_len);
            lent |= piece.iov_base == runs.runs[1].data();
        }
        EXPECT_EQ(mark(size, true) + std::string(plain.data(), size), sent) << length;
        EXPECT_EQ(length >= 8192, lent) << length;
        EXPECT_TRUE(encoder.encode(&reply, size + 3).empty()) << length;  // with its mark one too long
    }
    runs_t many{std::vector<std::string>(2000, std::string(10000, 'x'))};
    rpc_msg reply = reply_with(&many);
    EXPECT_LE(encoder.encode(&reply, 1 << 30).size(), 1024U);  // what writev takes
}

TEST(ConnectionTable, TakesPlacesFromTheGreedyAndTheIdle)
{
    using namespace std::chrono_literals;
    constexpr int free_place = connection_table::free_place, no_place = connection_table::no_place;
    const rpc_time start{};
    connection_table table(8);
    table.add(6, 2, start);
    for (int fd = 0; fd < 6; fd++)
        table.add(fd, 1, start + fd * 1s);
    EXPECT_EQ(free_place, table.place_for(3, start));
    table.add(7, 2, start);
    table.touch(0, start + 10s);

    EXPECT_EQ(1, table.place_for(3, start + 20s));         // of the host with most, the longest idle
    EXPECT_EQ(no_place, table.place_for(1, start + 60s));  // from itself alone, and none is idle for a minute
    EXPECT_EQ(1, table.place_for(1, start + 61s));
    for (const int fd : {1, 2, 3})
        table.remove(fd);
    for (const int fd : {1, 2, 3})
        table.add(fd, static_cast<in_addr_t>(2 + fd), start + 30s);
    // 3 of host 1, 2 of host 2, 1 of each other: nobody of host 2 takes from host 1.
    EXPECT_EQ(no_place, table.place_for(2, start + 59s));
    EXPECT_EQ(6, table.place_for(2, start + 60s));
    EXPECT_EQ(4, table.place_for(9, start + 59s));
}

}  // namespace
}  // namespace faxtray
