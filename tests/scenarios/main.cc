// scenario_tests [--update] NAME...: runs scenarios, each on a private host of its own, and compares what
// happened with the references, or makes it the references. tests/README.md says how to write one.
#include <sys/mount.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "scenarios/scenario.h"
#include "support/daemon.h"
#include "support/private_host.h"

namespace faxtray {

// What converters leave in /tmp stays on the private host.
static void hide_tmp()
{
    for (const char *dir : {"/run/tmp/upper", "/run/tmp/work"})
        std::filesystem::create_directories(dir);
    if (mount("overlay", "/tmp", "overlay", 0,
              "lowerdir=/tmp,upperdir=/run/tmp/upper,workdir=/run/tmp/work") != 0)
        perror("overlay /tmp");
}

// 0 when all was as the reference says, or is from now on; differences are printed.
static int run(const std::string &name, bool update)
{
    const temp_dir dir;
    const std::string path = std::string(SCENARIOS "/") + name, found = dir / "found";
    const int status = run_on_private_host([&] {
        std::ofstream transcript(found);  // the machine's, opened before /tmp is hidden
        hide_tmp();
        transcript << run_scenario(read_file(path + ".scn"));
        return transcript.flush().good() ? 0 : 1;
    });
    if (status != 0)
        return status;
    const ended_t difference = run_shell("diff -uN " + path + ".ref " + found);
    fputs(difference.output.c_str(), stdout);
    if (update)
        std::filesystem::copy(found, path + ".ref", std::filesystem::copy_options::overwrite_existing);
    return difference.status == 0 || update ? 0 : 1;
}

}  // namespace faxtray

int main(int argc, char **argv)
{
    const bool update = argc > 1 && strcmp(argv[1], "--update") == 0;
    // For sanitized daemons: signals stay ours, and stacks are whole, so that suppressions find theirs.
    setenv("ASAN_OPTIONS", "handle_segv=0:handle_sigbus=0:fast_unwind_on_malloc=0", 0);
    setenv("LSAN_OPTIONS", "print_suppressions=0:suppressions=" SUPPRESSIONS, 0);
    int worst = 0;
    for (int n = update ? 2 : 1; n < argc; n++)
        if (const int status = faxtray::run(argv[n], update); status != 0)
            worst = status;
    return worst;
}
