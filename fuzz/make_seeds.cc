// usage: make_seeds CORPUS
// Writes the inputs that the codec's fuzzers start with into the folders of CORPUS: a few lines of every
// sample page in every coding, whole and damaged, and fax files of them.
#include <filesystem>
#include <fstream>

#include "support/pages.h"

using namespace faxtray;

static void write(const std::filesystem::path &folder, const std::string &name, const std::string &content)
{
    std::filesystem::create_directories(folder);
    std::ofstream(folder / name, std::ios::binary) << content;
}

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    const std::filesystem::path corpus = argv[1];
    static constexpr struct {
        int df;
        const char *name, *end;  // how a page ends; two bytes, six times
    } codings[] = {{0, "mh", "\0\x08"}, {1, "mr", "\0\x18"}, {3, "mmr", "\0\0"}};
    for (const auto &coding : codings) {
        std::vector<std::string> pages;
        for (auto [name, lines] : sample_pages(24)) {
            while (encode(lines, coding.df).size() > 900)
                lines.pop_back();
            std::string page = encode(lines, coding.df);
            for (int i = 0; i < 6; i++)
                page.append(coding.end, 2);
            pages.push_back(page);
            write(corpus / (std::string("t4_") + coding.name), name, page);
            write(corpus / "t4_recode", name + std::string("-") + coding.name,
                  static_cast<char>("\x04\x09\x02\x00"[coding.df]) + page);
            page[page.size() / 2] = static_cast<char>(page[page.size() / 2] ^ 0x10);
            write(corpus / (std::string("t4_") + coding.name), name + std::string("-damaged"), page);
        }
        const std::string file = fax_file_of(pages, coding.df, "#PAGES:6\nRESOLUTION:1\n");
        for (int to = 0; to < 3; to++)
            write(corpus / "fax_file", coding.name + std::string("-to-") + codings[to].name,
                  static_cast<char>(to) + file);
        write(corpus / "fax_file", coding.name + std::string("-cut"), '\2' + file.substr(0, file.size() / 2));
    }
}
