// Every input that the fuzzers are started with or once choked on, run as a plain test.
#include <dirent.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "../fuzz/check_lists.h"
#include "../fuzz/fax_file.h"
#include "../fuzz/fax_header.h"
#include "../fuzz/import.h"
#include "../fuzz/info_file.h"
#include "../fuzz/requests.h"
#include "../fuzz/rpc_stream.h"
#include "../fuzz/t4_decoders.h"
#include "../fuzz/web_request.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace faxtray {

TEST(Corpus, EveryInputHoldsWhatTheFuzzersCheck)
{
    struct {
        const char *name;
        void (*run)(const uint8_t *, size_t);
    } rows[] = {{"fax_header", fuzz_fax_header},
                {"info_file", fuzz_info_file},
                {"requests", fuzz_requests},
                {"rpc_stream", fuzz_rpc_stream},
                {"fax_file", fuzz_fax_file},
                {"t4_mh", fuzz_t4_mh},
                {"t4_mr", fuzz_t4_mr},
                {"t4_mmr", fuzz_t4_mmr},
                {"t4_recode", fuzz_t4_recode},
                {"check_lists", fuzz_check_lists},
                {"import_tiff", fuzz_import_tiff},
                {"import_pbm", fuzz_import_pbm},
                {"import_png", fuzz_import_png},
                {"web_request", fuzz_web_request}};
    for (const auto &row : rows) {
        std::string folder = std::string(TEST_DATA "/../../fuzz/corpus/") + row.name;
        dir_ptr dir(opendir(folder.c_str()));
        ASSERT_TRUE(dir) << folder;
        int inputs = 0;
        while (const dirent *entry = readdir(dir.get())) {
            if (entry->d_name[0] == '.')
                continue;
            SCOPED_TRACE(entry->d_name);
            const std::string content = read_file(folder + "/" + entry->d_name);
            // Exactly as large as it is, so that the address sanitizer watches the edge.
            std::unique_ptr<uint8_t[]> bytes(new uint8_t[content.size()]);
            content.copy(reinterpret_cast<char *>(bytes.get()), content.size());
            capture_stdout out;
            capture_stderr err;
            row.run(bytes.get(), content.size());
            inputs++;
        }
        EXPECT_GT(inputs, 0) << folder;
    }
}

}  // namespace faxtray
