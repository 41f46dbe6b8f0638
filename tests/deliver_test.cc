// One fax to one recipient: into an inbox and to a command. Mail is for the service tests.
#include "deliver/deliver.h"

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sys/param.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <map>

#include "deliver/convert.h"
#include "support/capture.h"
#include "util/settings.h"

namespace faxtray {

using settings = std::map<std::string, std::string>;

struct outcome {
    int result;
    std::string message, destination, log;
};

class Delivery : public testing::Test {
protected:
    Delivery()
    {
        for (const char *name : {"incoming", "inboxes", "inboxes/alsmith", "work", "bin", "bin/utils"})
            mkdir((dir / name).c_str(), 0755);
        snprintf(dvWork_dir, sizeof dvWork_dir, "%s", (dir / "work").c_str());
        add_fax("x3.fax");
    }
    ~Delivery() override { snprintf(dvWork_dir, sizeof dvWork_dir, "work"); }

    std::string add_fax(const std::string &name) const { return dir.write("incoming/" + name, "a fax"); }

    // A converter or command.
    std::string script(const std::string &name, const std::string &text) const
    {
        std::string path = dir.write("bin/" + name, "#!/bin/sh\n" + text);
        chmod(path.c_str(), 0755);
        return path;
    }

    void add_converters() const
    {
        script("utils/tiffconv", "test $1 = -m && (echo tiff of; cat $2) >$3\n");
        script("rasterps2", "test $1 = -f && (echo ps of; cat $3) >$2\n");
        script("distill", "read n && test $n = 1 && (echo pdf of; cat $1) >${1%.ps}.pdf\n");
    }

    // The entry of Al Smith, who has an inbox; "-" leaves an attribute out.
    av_list_ptr record(settings with) const
    {
        with.insert({{"delivery_dir_root", dir / "inboxes"}, {"delivery_method", "faxtray"}});
        av_list_ptr list(new_av_list("Al Smith"));
        for (const auto &[attr, value] : with)
            if (value != "-")
                av_put(list.get(), attr.c_str(), value.c_str());
        return list;
    }

    outcome deliver(const std::string &fax, const settings &with = {}) const
    {
        outcome got;
        char message[4096] = "none", destination[4096] = "none";
        capture_stderr log;
        got.result = deliver_fax(record(with).get(), fax.c_str(), message, destination, nullptr, 0);
        got.log = log.text();
        size_t level = got.log.find("WARNING:  ");  // behind date and time
        got.log.erase(0, level == got.log.npos ? 0 : level + strlen("WARNING:  "));
        got.message = message;
        got.destination = destination;
        return got;
    }

    std::string names(const char *directory) const { return names_in(dir / directory); }

    // `text` with "%f" for the fax's path.
    static std::string with_fax(std::string text, const std::string &fax)
    {
        for (size_t at; (at = text.find("%f")) != text.npos;)
            text.replace(at, 2, fax);
        return text;
    }

    temp_dir dir;
    scoped_env programs{"PATH", ((dir / "bin:") + getenv("PATH")).c_str()};
    scoped_env home{"ONDRIXHOME", (dir / "bin").c_str()}, temp{"ONDRIXTMP", dir.path().c_str()};
};

TEST_F(Delivery, ArrivesInTheInboxAsAsked)
{
    add_converters();
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
        {"x3.fax", {{"delivery_file_format", "tiff_f"}}, 0, "x30_.tif", "tiff of\na fax"},
        {own + ".fax", {{"delivery_file_format", "pdf"}}, 0, own + "0_.pdf", "pdf of\nps of\na fax"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name + " " + row.arrives);
        const std::string fax = add_fax(row.name);
        outcome got = deliver(fax, row.with);
        EXPECT_EQ(got.result, row.result);
        EXPECT_EQ(got.message, row.result ? "Incoming problem fax has been routed to 'Al Smith' inbox.\n"
                                          : "Incoming fax has been routed to 'Al Smith' inbox.\n");
        const std::string arrived = names("inboxes/alsmith");
        EXPECT_EQ(fnmatch(row.arrives.c_str(), arrived.c_str(), 0), 0) << arrived;
        EXPECT_EQ(got.destination, dir / ("inboxes/alsmith/" + arrived).c_str());
        EXPECT_EQ(read_file(got.destination), row.content);
        EXPECT_EQ(read_file(fax), "a fax");
        EXPECT_EQ(names("incoming"), row.name);
        EXPECT_EQ(names("work"), "");
        EXPECT_EQ(got.log, "");
        std::filesystem::remove(got.destination);
        std::filesystem::remove(fax);
        std::filesystem::remove(dir / "incoming/x3.fax");
    }
    const std::string ps = "/tmp/" + own + "0_.fax.ps";
    EXPECT_TRUE(std::filesystem::remove(ps)) << "the PostScript file stays";
}

TEST_F(Delivery, FailuresSayWhyAndLeaveNothing)
{
    const std::string x3 = dir / "incoming/x3.fax";
    script("utils/tiffconv", "echo half >$3; exit 1\n");
    // One setting, and what the message and then the log begin with.
    const struct {
        const char *attr, *value;
        int result;
        const char *text;
    } rows[] = {
        {"group", "", 3,
         "Fax routing failure: Bad or invalid recipient.\ndeliver_fax:  [Al Smith] is a group []!\n"},
        {"delivery_method", "-", 2,
         "Fax routing failure: Couldn't determine a routing method for\n'Al Smith', %f.\n"},
        {"delivery_method", "", 2,
         "Fax routing failure: Couldn't determine a routing method for\n'Al Smith', %f.\n"},
        {"delivery_method", "fly:", 5,
         "Fax routing failure: Delivery type unknown [fly:].\nCan't autoroute '%f' for 'Al Smith'.\n"
         "deliver_fax:  unsupported delivery type -1, fly:\n"},
        {"delivery_method", "email_body", 3,
         "Fax routing failure: Couldn't determine email address for 'Al Smith'.\n%f\n"},
        {"delivery_method", "exec", 3, "Couldn't route fax using command '(NULL)'\nfor %f to 'Al Smith'\n"},
        {"delivery_file_format", "tiff_f", 5,
         "Fax routing failure: Couldn't change format of\n'%f' for 'Al Smith'.\n"
         "format_fax_file: Can't filter fax file: ["},
        {"delivery_file_format", "g4", 5,
         "Fax routing failure: Couldn't change format of\n'%f' for 'Al Smith'.\n"},
        {"delivery_dir", "missing", 5,
         "Fax routing failure: Couldn't autoroute\n'%f' via inbox for 'Al Smith'.\n"},
    };
    for (const auto &row : rows) {
        outcome got = deliver(x3, {{row.attr, row.value}});
        const std::string text = with_fax(row.text, x3);
        EXPECT_EQ(got.result, row.result) << text;
        EXPECT_EQ((got.message + got.log).substr(0, text.size()), text);
        EXPECT_EQ(names("incoming") + names("work") + names("inboxes/alsmith"), "x3.fax") << text;
    }
    outcome got = deliver(dir / "incoming/none.fax");
    EXPECT_EQ(got.result, 5) << "nothing to copy";
    EXPECT_EQ(got.destination, dir / "incoming/none0_.fax");
    EXPECT_EQ(deliver(std::string(MAXPATHLEN, '/')).result, 5);
    EXPECT_EQ(deliver("").message, "Fax routing failure: Bad or invalid argument for delivery.\n");
}

TEST_F(Delivery, EightNamesAreTriedForTheCopy)
{
    const std::string x3 = dir / "incoming/x3.fax";
    for (int n = 0; n < 7; n++)
        add_fax("x3" + std::to_string(n) + "_.fax");
    EXPECT_EQ(deliver(x3).destination, dir / "inboxes/alsmith/x37_.fax");
    add_fax("x37_.fax");
    outcome got = deliver(x3);
    EXPECT_EQ(got.result, 5);
    EXPECT_EQ(got.message, with_fax("Fax Routing failure: Couldn't autoroute '%f'\nfor 'Al Smith'\n", x3));
    EXPECT_EQ(got.destination, "");
    for (int n = 0; n < 8; n++)
        EXPECT_EQ(read_file(dir / ("incoming/x3" + std::to_string(n) + "_.fax").c_str()), "a fax");

    add_fax("a_0_.fax");
    EXPECT_EQ(deliver(add_fax("a .fax")).destination, dir / "inboxes/alsmith/a_1_.fax")
        << "what filtering makes of the name is taken";
}

TEST_F(Delivery, ReplacesNoOtherFile)
{
    add_converters();
    const settings tiff = {{"delivery_file_format", "tiff_f"}};
    const std::string x3 = dir / "incoming/x3.fax";
    dir.write("inboxes/alsmith/x30_.tif", "from another modem");
    EXPECT_EQ(deliver(x3, tiff).destination, dir / "inboxes/alsmith/x30__2.tif");
    EXPECT_EQ(deliver(x3, tiff).destination, dir / "inboxes/alsmith/x30__2.tif") << "the same once more";
    dir.write("incoming/x30_.tif", "somebody's");
    EXPECT_EQ(deliver(x3, tiff).result, 5);
    EXPECT_EQ(read_file(dir / "incoming/x30_.tif"), "somebody's");
    EXPECT_EQ(names("incoming"), "x3.fax x30_.tif");

    outcome into_own = deliver(x3, {{"delivery_dir", dir / "incoming"}});
    EXPECT_EQ(into_own.destination, dir / "incoming/x30_.fax");
    EXPECT_EQ(read_file(into_own.destination), "a fax") << "the copy stays where it is";
}

TEST_F(Delivery, CommandsGetTheFaxAndTheEntry)
{
    const std::string x3 = dir / "incoming/x3.fax", copy = dir / "incoming/x30_.fax";
    const std::string command = " " + script("take", "cat $1 - >$3; echo $1 $2 $# >>$3\n");
    auto deliver_by = [&](const std::string &text, const std::string &root) {
        return deliver(x3, {{"delivery_method", "exec :" + text}, {"delivery_dir_root", root}});
    };
    const std::string out = dir / "out", root = "/root " + out;
    outcome got = deliver_by(command, root);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.message, "Incoming fax has been routed via \"" + command + "\" program to 'Al Smith'.\n");
    EXPECT_EQ(got.destination, root);
    EXPECT_EQ(read_file(out), "a fax[Al Smith]\ndelivery_dir_root=" + root +
                                  "\ndelivery_method=exec :" + command + "\n" + copy + " /root 3\n");
    got = deliver_by("echo >" + out, "-");
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.destination, copy);

    for (auto [text, result] : {std::pair("exit 3;", 6), {"no_such_command", 6}, {"kill -9 $$;", 0}}) {
        got = deliver_by(text, "-");
        EXPECT_EQ(got.result, result) << text;
        EXPECT_EQ(got.message, (result ? "Couldn't route fax using command '" + std::string(text) +
                                             "'\nfor " + x3 + " to 'Al Smith'\n"
                                       : "Incoming fax has been routed via \"" + std::string(text) +
                                             "\" program to 'Al Smith'.\n"));
    }
    EXPECT_EQ(deliver_by(std::string(12288, ':'), "-").result, 5) << "too long to be run whole";
    EXPECT_EQ(deliver(x3, {{"delivery_method", "exec:true"}, {"note", std::string(1 << 20, 'n')}}).result, 0)
        << "a command need not read";
    EXPECT_EQ(names("incoming"), "x3.fax");
}

TEST_F(Delivery, TracesItsSteps)
{
    trace_on trace;
    const std::string x3 = dir / "incoming/x3.fax", copy = dir / "incoming/x30_.fax";
    deliver(x3, {{"delivery_method", "exec:exit 1;"}, {"delivery_dir_root", "-"}});
    deliver(x3, {{"delivery_dir", "none"}});
    const std::string text = trace.text(), missing = dir / "inboxes/none";
    EXPECT_EQ(text, "deliver_fax...\ndeliver_fax: copy \"" + x3 + "\" to \"" + copy +
                        "\"\nexec_deliver: Invalid destination. Passing \"\" to shell.\n"
                        "exec_deliver:  child exited with 1\ndeliver_fax: exec_deliver failed, ret=6\n"
                        "deliver_fax...\ndeliver_fax: copy \"" +
                        x3 + "\" to \"" + copy + "\"\nroute_fax_file:  moving " + copy + " to " + missing +
                        " for 'Al Smith'\npublish: rename(\"" + missing +
                        "/x30_.fax\") failed: No such file or directory.\nroute_fax_file:  cv_move failed!\n"
                        "deliver_fax: route_fax_file failed, ret=5\n");
}

TEST_F(Delivery, TemporaryExtensionsAreDropped)
{
    for (auto [name, cut] : {std::pair("/a/x.fax.0412tmp", 8),
                             {"x.0412tmp", 1},
                             {"/a/x.412tmp", -1},
                             {"/a/x.04125tmp", -1},
                             {"/a/x.0412tmp ", -1},
                             {"/a.0412tmp/x", -1},
                             {"", -1}}) {
        const char *found = get_tmp_ext(name);
        EXPECT_EQ(found ? found - name : -1, cut) << name;
    }
    for (auto [name, converted] : {std::pair("/a/x.fax.0412tmp", "/a/x.tif"),
                                   {"/a/x.fax", "/a/x.tif"},
                                   {"/a/x.faxes", "/a/x.faxes.tif"},
                                   {"/a.fax/x", "/a.fax/x.tif"}})
        EXPECT_EQ(converted_name(name, ".tif"), converted);
    char path[MAXPATHLEN], destination[4096];
    snprintf(path, sizeof path, "%s", dir.write("incoming/y.fax.0412tmp", "a fax").c_str());
    EXPECT_EQ(route_fax_file(record({}).get(), path, destination), 0);
    EXPECT_EQ(destination, dir / "inboxes/alsmith/y.fax");
}

}  // namespace faxtray
