// Listing, reading and removing faxes, for users and for designated forwarders.
#include <gtest/gtest.h>
#include <unistd.h>

#include "requests.h"
#include "support/daemon.h"

namespace faxtray {

static constexpr uint32_t chunk = 262144;

// Reads a fax as clients do: chunk after chunk until an empty one comes.
static std::string fetch(uint32_t procedure, const std::string &who, uint32_t id)
{
    std::string fax;
    for (connection c;;) {
        reply_t reply = c.call(procedure, part_of(who, id, chunk, static_cast<uint32_t>(fax.size())));
        EXPECT_EQ(reply.code(), 0) << reply.message();
        if (reply.code() != 0 || reply.chunk().empty())
            return fax;
        fax += reply.chunk();
    }
}

TEST(Service, ListsReadsAndRemovesFaxesOfUsersAndUnroutedOnes)
{
    site s;
    const struct {
        std::string who, directory;
        uint32_t list, oldest, count, read, remove;  // procedures
    } rows[] = {
        {al, s.inbox("alsmith"), 2, 4, 9, 5, 6},
        {bea + text(s.handle()), s.incoming(), 13, 14, 15, 17, 18},
    };
    for (const auto &row : rows)
        s.add_fax(row.directory, "big", 1'000'000);
    running_daemon daemon(s);
    for (const auto &row : rows) {
        const std::string big = read_file(row.directory + "/big");
        std::vector<listed_fax_t> faxes = call(row.list, index_of(row.who)).faxes();
        ASSERT_EQ(faxes.size(), 1u);
        EXPECT_EQ(faxes[0].size, big.size());
        EXPECT_EQ(call(row.oldest, row.who).res_type(), static_cast<int>(row.oldest) - 1);
        EXPECT_EQ(call(row.count, row.who).at(1), 1u);
        EXPECT_TRUE(fetch(row.read, row.who, faxes[0].id) == big) << "not what stands on the disk";
        EXPECT_EQ(call(row.remove, row.who + word(faxes[0].id)).code(), 0);
        EXPECT_EQ(names_in(row.directory), ".inbox_index");
        EXPECT_EQ(call(row.count, row.who).at(1), 0u);
    }
}

TEST(Service, CommitRemovesWhatWasShownAndNoMore)
{
    site s;
    s.add_faxes(s.inbox("alsmith"), 5);
    s.add_faxes(s.incoming(), 2);
    running_daemon daemon(s);

    EXPECT_EQ(call(2, index_of(al, 0, 1, 1)).faxes().size(), 1u);
    EXPECT_EQ(call(3, al).res_type(), 2);  // a slice of one is not taken as shown
    EXPECT_EQ(list(al).size(), 5u);

    EXPECT_EQ(call(3, al).res_type(), 2);
    EXPECT_EQ(list(al).size(), 0u);
    EXPECT_EQ(call(2, index_of(al, 4711)).code(), 0) << "an empty list answers before it looks for an id";

    s.add_faxes(s.inbox("alsmith"), 150);
    EXPECT_EQ(list(al).size(), 100u);
    s.add_fax(s.inbox("alsmith"), "late");
    EXPECT_EQ(call(3, al).res_type(), 2);
    std::vector<listed_fax_t> left = list(al);
    ASSERT_EQ(left.size(), 51u);
    EXPECT_EQ(left[0].name, "f100");

    list(bea, s.handle());
    EXPECT_EQ(call(16, bea + text(s.handle())).res_type(), 15);
    EXPECT_EQ(list(bea, s.handle()).size(), 0u);
}

TEST(Service, RefusesWithCodeAndMessage)
{
    site s;
    s.add_fax(s.inbox("alsmith"), "fax", 1000);
    s.add_fax(s.incoming(), "unrouted");
    running_daemon daemon(s);
    const uint32_t known = call(8, recipients_for(bea)).at(1);
    uint32_t id = list(al)[0].id, unrouted = list(bea, s.handle())[0].id, check = call(2, index_of(al)).at(2);
    const std::string none = word(0), unknown = identity("Nobody"), wrong = identity("Bea", "wrong"),
                      stale = identity("Bea", "2fc7b405", 7), handle = text(s.handle());

    const struct {
        uint32_t procedure;
        std::string arguments;
        int code;
        std::string message;
    } rows[] = {
        {2, index_of(unknown), 11, "Trayd: Invalid user name: [Nobody]."},
        {2, index_of(wrong), 8, "Trayd: Invalid password."},
        {2, index_of(stale), 18, "Trayd: Stale USER_LIST.info entry."},
        {2, index_of(al, 0, 1, 0, check), 13, "Trayd: Index has not changed since last request."},
        {3, wrong, 8, "Trayd: Invalid password."},
        {5, part_of(al, id, 0, 0), 19, "Trayd: Invalid read request size: 0."},
        {5, part_of(al, id, 0xFFFFFFFF, 0), 19, "Trayd: Invalid read request size: 4294967295."},
        {5, part_of(wrong, id, 1, 0), 8, "Trayd: Invalid password."},
        {6, al + word(unrouted), 11, "Trayd: Invalid fax id: " + std::to_string(unrouted)},
        {6, none + word(id), 11, "Trayd: Invalid user name: [(null)]."},
        {8, recipients_for(al), 12, "Trayd: User \"al smith\" is not designated forwarder."},
        {8, recipients_for(bea, known), 13, "Trayd: List has not changed since last request."},
        {9, wrong, 8, "Trayd: Invalid password."},
        {10, al, 12, "Trayd: User not designated forwarder: [al smith]."},
        {13, index_of(al, s.handle()), 12, "Trayd: User \"al smith\" is not designated forwarder."},
        {13, index_of(bea, ""), 12, "Trayd: User \"Bea\" is not DF for inbox: []."},
        {13, index_of(bea, "Front Desk"), 5, "Trayd: Invalid inbox: [Front Desk]."},
        {13, index_of(wrong, s.handle()), 8, "Trayd: Invalid password."},
        {15, al + handle, 12, "Trayd: User \"al smith\" is not designated forwarder."},
        {17, part_of(bea + handle, unrouted, chunk + 1, 0), 19, "Trayd: Invalid read request size: 262145."},
        {18, bea + handle + word(id), 11, "Trayd: Invalid fax id: " + std::to_string(id)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE("procedure " + std::to_string(row.procedure) + ": " + row.message);
        reply_t reply = call(row.procedure, row.arguments);
        EXPECT_EQ(reply.code(), row.code);
        EXPECT_EQ(reply.message(), row.message);
    }
    EXPECT_EQ(list(al).size(), 1u);  // nothing was lost on the way
    EXPECT_EQ(list(bea, s.handle()).size(), 1u);
    s.write_users("[Carol]\n");
    EXPECT_EQ(call(8, recipients_for(bea, known)).code(), 0);
}

TEST(Service, ReadsAtTheEdges)
{
    site s;
    std::string fax = s.add_fax(s.inbox("bea"), "fax", 1000);
    running_daemon daemon(s);
    uint32_t id = list(bea)[0].id, size = static_cast<uint32_t>(fax.size());

    EXPECT_EQ(call(5, part_of(bea, id, 10, size - 4)).chunk(), fax.substr(size - 4));
    EXPECT_EQ(call(5, part_of(bea, id, 10, size)).chunk(), "");
    EXPECT_EQ(call(5, part_of(bea, id, 0, size)).code(), 0) << "the end is told before the size is looked at";
    EXPECT_EQ(call(5, part_of(identity("Bea", "wrong"), id, 10, 1)).chunk(), fax.substr(1, 10))
        << "only the first chunk asks for the password";

    std::string path = s.inbox("bea") + "/fax";
    ASSERT_EQ(unlink(path.c_str()), 0);
    reply_t read = call(5, part_of(bea, id, 10, 0)), removed = call(6, bea + word(id));
    EXPECT_EQ(read.message(),
              "Trayd: Can't open fax id: " + std::to_string(id) + ": No such file or directory");
    EXPECT_EQ(read.at(2), 2u);  // ENOENT
    EXPECT_EQ(removed.message(),
              "Trayd: Can't remove committed file: [" + path + "]: No such file or directory.");
    EXPECT_EQ(call(6, bea + word(id)).code(), 11) << "gone from the list all the same";
}

}  // namespace faxtray
