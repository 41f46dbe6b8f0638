// What a start removes after a crash, and what it leaves alone.
#include "disk/work_note.h"

#include <gtest/gtest.h>
#include <sys/param.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "disk/files.h"
#include "disk/publish.h"
#include "support/capture.h"
#include "util/owned.h"
#include "util/settings.h"

namespace faxtray {

class WorkNote : public testing::Test {
protected:
    WorkNote() { snprintf(dvWork_dir, sizeof dvWork_dir, "%s", work.path().c_str()); }
    ~WorkNote() override { snprintf(dvWork_dir, sizeof dvWork_dir, "work"); }

    // A process that makes its note, does that and dies.
    static void crash_after(const std::function<void()> &deeds)
    {
        pid_t pid = fork();
        if (pid == 0) {
            note_begin();
            deeds();
            _exit(0);
        }
        waitpid(pid, nullptr, 0);
    }

    static void recover()
    {
        capture_stderr quiet;
        note_recover();
    }

    temp_dir work, faxes;
    const std::string fax = faxes.write("x.fax", "a fax"), copy = faxes / "x0_.fax";
};

TEST_F(WorkNote, NextStartRemovesWhatACrashLeftAndKeepsWhatOthersPutThere)
{
    faxes.write("ii_before", "somebody's");
    crash_after([&] {
        char path[MAXPATHLEN], published[MAXPATHLEN];
        copy_new(fax.c_str(), copy.c_str());
        copy_new(fax.c_str(), (faxes / "odd \n%0a\x80.fax").c_str());
        copy_staged(fax.c_str(), (faxes / "y.fax").c_str(), path);
        unique_fd(unique_file("FDF.", path));
        const std::string recoded = faxes / ("x0_.fax." + std::to_string(getpid())).c_str();
        for (const std::string &made : {recoded, work / "FDF.child"}) {
            note_will_make(made.c_str());
            std::ofstream(made) << "half a ti";
        }
        cv_move(faxes.write("z.tif", "converted").c_str(), copy.c_str());

        copy_new(fax.c_str(), (faxes / "x1_.fax").c_str());
        snprintf(published, sizeof published, "%s", (faxes / "delivered.fax").c_str());
        publish((faxes / "x1_.fax").c_str(), published, false);
        copy_new(fax.c_str(), (faxes / "replaced.fax").c_str());
        for (const char *name : {"ii_before", "new.fax", "new.1", "ii_directory"})
            note_will_make((faxes / name).c_str());
    });
    EXPECT_GT(std::distance(std::filesystem::directory_iterator(faxes.path()), {}), 7);
    std::filesystem::rename(faxes.write("other", "another fax"), faxes / "replaced.fax");
    faxes.write("new.fax", "a fax that came since");
    faxes.write("new.1", "another one");
    std::filesystem::create_directory(faxes / "ii_directory");
    recover();
    EXPECT_EQ(names_in(faxes.path()),
              "delivered.fax ii_before ii_directory new.1 new.fax replaced.fax x.fax");
    EXPECT_EQ(read_file(faxes / "replaced.fax"), "another fax");
    EXPECT_EQ(names_in(work.path()), "");
}

TEST_F(WorkNote, OfALivingProcessIsLeftAlone)
{
    EXPECT_EQ(note_begin() + note_begin(), 2);
    copy_new(fax.c_str(), copy.c_str());
    note_end();
    recover();
    EXPECT_EQ(names_in(faxes.path()), "x.fax x0_.fax") << "the note begun first stands";
    note_end();
    EXPECT_EQ(names_in(work.path()), "");
    snprintf(dvWork_dir, sizeof dvWork_dir, "%s", (work / "missing").c_str());
    EXPECT_EQ(note_begin(), 0);
    EXPECT_EQ(copy_new(fax.c_str(), (faxes / "x2_.fax").c_str()), 1) << "deliveries go on without a note";
    note_end();
}

TEST_F(WorkNote, TornLinesNameNothing)
{
    crash_after([&] { note_will_make((faxes / "ii_abc").c_str()); });
    const std::string note = work / names_in(work.path()).c_str(), line = read_file(note);
    std::filesystem::remove(note);
    faxes.write("ii_ab", "what a cut line would name");
    for (size_t length = 0; length <= line.size(); length++)
        for (const char *after : {"", "\nm 1:1:1 /none .\n"}) {
            faxes.write("ii_abc", "");
            work.write("delivery_note.1.0", line.substr(0, length) + after);
            recover();
            bool whole = length == line.size() || (length == line.size() - 1 && *after);
            EXPECT_EQ(names_in(faxes.path()) + names_in(work.path()),
                      whole ? "ii_ab x.fax" : "ii_ab ii_abc x.fax")
                << length << after;
        }
}

}  // namespace faxtray
