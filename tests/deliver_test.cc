// One fax to one recipient: into an inbox and to a command. Mail is for the service tests.
#include "deliver/deliver.h"

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/param.h>

#include <filesystem>
#include <map>

#include "deliver/convert.h"
#include "support/capture.h"
#include "support/site.h"
#include "util/settings.h"

namespace faxtray {

using settings = std::map<std::string, std::string>;

struct outcome {
    int result;
    std::string message, destination, log;
};

static int calls_of_keepalive;

class Delivery : public testing::Test {
protected:
    Delivery()
    {
        std::filesystem::create_directory(inbox);
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s", (s / "work").c_str());
        s.add_converters();
    }
    ~Delivery() override { snprintf(dvWork_dir, sizeof dvWork_dir, "work"); }

    std::string add_fax(const std::string &name) const
    {
        s.add(s.incoming(), name, "a fax");
        return s.incoming() + "/" + name;
    }

    // The entry of Al Smith, who has an inbox; "-" leaves an attribute out.
    av_list_ptr record(settings with) const
    {
        with.insert({{"delivery_dir_root", s / "faxtrayes"}, {"delivery_method", "faxtray"}});
        av_list_ptr list(new_av_list("Al Smith"));
        for (const auto &[attr, value] : with)
            if (value != "-")
                av_put(list.get(), attr.c_str(), value.c_str());
        return list;
    }

    outcome deliver(const std::string &fax, const settings &with = {}) const
    {
        char message[4096] = "none", destination[4096] = "none";
        capture_stderr log;
        calls_of_keepalive = 0;
        int result = deliver_fax(
            record(with).get(), fax.c_str(), message, destination, [] { calls_of_keepalive++; }, 0);
        return {result, message, destination, log.text()};
    }

    site s;
    const std::string inbox = s.inbox("alsmith"), x3 = add_fax("x3.fax"), copy = s.incoming() + "/x30_.fax";
    scoped_env programs{"PATH", (s.path() + ":" + getenv("PATH")).c_str()};
    scoped_env home{"ONDRIXHOME", s.path().c_str()}, temp{"ONDRIXTMP", (s / "tmp").c_str()};
};

TEST_F(Delivery, ArrivesInTheInboxAsAsked)
{
    // Names in /tmp are everybody's: this one is not met there twice.
    const std::string own = "test" + std::to_string(getpid()) + "_";
    const struct {
        std::string name;
        settings with;
        int result;
        std::string arrives, content;
    } rows[] = {
        {"x3.fax", {}, 0, "x30_.fax", "a fax"},
        {"x3.fax", {{"delivery_naming", "posix"}, {"delivery_file_format", "bmp"}}, 0, "x30_.fax", "a fax"},
        {"pfax0001.fax", {}, 1, "pfax00010_.fax", "a fax"},
        {"Quote $(me)", {}, 0, "_uote__0_.fax", "a fax"},
        {"f1", {}, 0, "0_.fax", "a fax"},
        {"ii_abc.fax", {}, 0, "i_abc0_.fax", "a fax"},
        {"x3.fax", {{"delivery_naming", "8.3"}}, 0, "[a-z][a-z][a-z][0-9][0-9][a-z][a-z][a-z].fax", "a fax"},
        {"x3.fax", {{"delivery_file_format", "tiff_f"}}, 0, "x30_.tif", "TIFFa fax"},
        {own + ".fax", {{"delivery_file_format", "pdf"}}, 0, own + "0_.pdf", "PDFPSa fax"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name + " " + row.arrives);
        const std::string fax = add_fax(row.name), faxes = names_in(s.incoming());
        outcome got = deliver(fax, row.with);
        EXPECT_EQ(got.result, row.result);
        EXPECT_EQ(calls_of_keepalive, 1);
        EXPECT_EQ(got.message, row.result ? "Incoming problem fax has been routed to 'Al Smith' inbox.\n"
                                          : "Incoming fax has been routed to 'Al Smith' inbox.\n");
        const std::string arrived = names_in(inbox);
        EXPECT_EQ(fnmatch(row.arrives.c_str(), arrived.c_str(), 0), 0) << arrived;
        EXPECT_EQ(got.destination, inbox + "/" + arrived);
        EXPECT_EQ(read_file(got.destination), row.content);
        EXPECT_EQ(read_file(fax), "a fax");
        EXPECT_EQ(names_in(s.incoming()), faxes);
        EXPECT_EQ(names_in(s / "work") + got.log, "");
        std::filesystem::remove(got.destination);
    }
    const std::string ps = "/tmp/" + own + "0_.fax.ps";
    EXPECT_TRUE(std::filesystem::remove(ps)) << "the PostScript file stays";
}

TEST_F(Delivery, FailuresSayWhyAndLeaveNothing)
{
    s.add_script("utils/tiffconv", "echo half >$3; exit 1\n");
    const std::string failure = "Fax routing failure: ",
                      no_method = "Couldn't determine a routing method for\n'Al Smith', " + x3 + ".\n",
                      no_format = "Couldn't change format of\n'" + x3 + "' for 'Al Smith'.\n";
    const struct {
        const char *attr, *value;
        int result;
        std::string message;
        const char *logged = "";
    } rows[] = {
        {"group", "", 3, failure + "Bad or invalid recipient.\n",
         "deliver_fax:  [Al Smith] is a group []!\n"},
        {"delivery_method", "-", 2, failure + no_method},
        {"delivery_method", "fly:", 5,
         failure + "Delivery type unknown [fly:].\nCan't autoroute '" + x3 + "' for 'Al Smith'.\n",
         "deliver_fax:  unsupported delivery type -1, fly:\n"},
        {"delivery_method", "email_body", 3,
         failure + "Couldn't determine email address for 'Al Smith'.\n" + x3 + "\n"},
        {"delivery_method", "exec", 3,
         "Couldn't route fax using command '(NULL)'\nfor " + x3 + " to 'Al Smith'\n"},
        {"delivery_file_format", "tiff_f", 5, failure + no_format,
         "format_fax_file: Can't filter fax file: ["},
        {"delivery_file_format", "g4", 5, failure + no_format},
        {"delivery_dir", "missing", 5,
         failure + "Couldn't autoroute\n'" + x3 + "' via inbox for 'Al Smith'.\n"},
    };
    for (const auto &row : rows) {
        outcome got = deliver(x3, {{row.attr, row.value}});
        EXPECT_EQ(got.result, row.result) << row.message;
        EXPECT_EQ(got.message, row.message);
        EXPECT_NE(got.log.find(row.logged), std::string::npos) << got.log;
        EXPECT_EQ(names_in(s.incoming()) + names_in(s / "work") + names_in(inbox), "x3.fax") << row.message;
    }
    EXPECT_EQ(deliver(s.incoming() + "/none.fax").result, 5) << "nothing to copy";
    EXPECT_EQ(deliver(std::string(MAXPATHLEN, 'x')).message.find("Fax Routing failure"), 0u)
        << "no name fits";
    EXPECT_EQ(deliver("").message, failure + "Bad or invalid argument for delivery.\n");
}

TEST_F(Delivery, EightNamesAreTriedForTheCopy)
{
    add_fax("a_0_.fax");
    EXPECT_EQ(deliver(add_fax("a .fax")).destination, inbox + "/a_1_.fax")
        << "what filtering makes of the name is taken";
    for (int n = 0; n < 8; n++) {
        EXPECT_EQ(deliver(x3).destination, inbox + "/x3" + std::to_string(n) + "_.fax");
        s.add(s.incoming(), "x3" + std::to_string(n) + "_.fax", "somebody's");
    }
    EXPECT_EQ(deliver(x3).message, "Fax Routing failure: Couldn't autoroute '" + x3 + "'\nfor 'Al Smith'\n");
    for (int n = 0; n < 8; n++)
        EXPECT_EQ(read_file(s.incoming() + "/x3" + std::to_string(n) + "_.fax"), "somebody's");
}

TEST_F(Delivery, ReplacesNoFileBesideTheFax)
{
    EXPECT_EQ(deliver(x3, {{"delivery_dir", s.incoming()}}).destination, copy);
    EXPECT_EQ(read_file(copy), "a fax") << "the copy stays where it is";
    s.add(s.incoming(), "x31_.tif", "somebody's");
    EXPECT_EQ(deliver(x3, {{"delivery_file_format", "tiff_f"}}).result, 5);
    EXPECT_EQ(read_file(s.incoming() + "/x31_.tif"), "somebody's");
    EXPECT_EQ(names_in(s.incoming()), "x3.fax x30_.fax x31_.tif");
}

TEST_F(Delivery, CommandsGetTheFaxAndTheEntry)
{
    auto deliver_by = [&](const std::string &text, const std::string &root) {
        return deliver(x3, {{"delivery_method", "exec :" + text}, {"delivery_dir_root", root}});
    };
    s.add_script("take", "cat $1 - >$3; echo $1 $2 $# >>$3\n");
    const std::string command = s / "take", out = s / "out", root = "/root " + out;
    outcome got = deliver_by(command, root);
    EXPECT_EQ(got.message, "Incoming fax has been routed via \"" + command + "\" program to 'Al Smith'.\n");
    EXPECT_EQ(got.destination, root);
    EXPECT_EQ(read_file(out), "a fax[Al Smith]\ndelivery_dir_root=" + root +
                                  "\ndelivery_method=exec :" + command + "\n" + copy + " /root 3\n");
    EXPECT_EQ(deliver_by("echo >" + out, "-").destination, copy);

    for (auto [text, result] : {std::pair("exit 3;", 6), {"no_such_command", 6}, {"kill -9 $$;", 0}})
        EXPECT_EQ(deliver_by(text, "-").result, result) << text;
    EXPECT_EQ(deliver_by(std::string(12288, ':'), "-").result, 5) << "too long to be run whole";
    EXPECT_EQ(deliver(x3, {{"delivery_method", "exec:true"}, {"note", std::string(1 << 20, 'n')}}).result, 0)
        << "a command need not read";
    EXPECT_EQ(names_in(s.incoming()), "x3.fax");
}

TEST_F(Delivery, TemporaryExtensionsAreDropped)
{
    for (auto [name, converted] : {std::pair("/a/x.fax.0412tmp", "/a/x.tif"),
                                   {"/a/x.412tmp", "/a/x.412tmp.tif"},
                                   {"/a/x.04125tmp", "/a/x.04125tmp.tif"},
                                   {"/a/x.0412tmp ", "/a/x.0412tmp .tif"},
                                   {"/a.0412tmp/x", "/a.0412tmp/x.tif"},
                                   {"", ".tif"},
                                   {"/a/x.fax", "/a/x.tif"},
                                   {"/a/x.faxes", "/a/x.faxes.tif"},
                                   {"/a.fax/x", "/a.fax/x.tif"}})
        EXPECT_EQ(converted_name(name, ".tif"), converted);
    char path[MAXPATHLEN], destination[4096];
    snprintf(path, sizeof path, "%s", add_fax("y.fax.0412tmp").c_str());
    EXPECT_EQ(route_fax_file(record({}).get(), path, destination), 0);
    EXPECT_EQ(destination, inbox + "/y.fax");
}

}  // namespace faxtray
