// How fast are our fax codecs, compared with libtiff's, in memory, on the same pages?
// usage: bench_codec FOLDER [SECONDS]
//
// FOLDER holds PBM pages of 1728 pixels a line (make_pages.py). libtiff codes each page (FillOrder 2, as fax
// files have it); both decode that, and both encode the bitmap. They take turns in one run, each for SECONDS
// (0.05) a turn; the figures are medians over the turns. What was decoded must be the page, and libtiff
// must read the page from what we encoded.
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "codec/change_format.h"
#include "codec/t4_decoder.h"
#include "codec/t4_encoder.h"

using namespace faxtray;
using bytes_t = std::vector<unsigned char>;

static constexpr int line_bytes = 216;
static constexpr int turns = 15;

struct coding_t {
    const char *name;
    int df;
    uint16_t compression;
    int options;  // T4Options, -1 for none
};
static constexpr coding_t codings[] = {{"MH", 0, COMPRESSION_CCITTFAX3, 0},
                                       {"MR", 1, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING},
                                       {"MMR", 3, COMPRESSION_CCITTFAX4, -1}};

[[noreturn]] static void give_up(const std::string &why)
{
    fprintf(stderr, "bench_codec: %s\n", why.c_str());
    exit(1);
}

// A TIFF file in memory.
struct memory_file_t {
    bytes_t content;
    size_t at = 0;
};

static tmsize_t read_memory(thandle_t handle, void *to, tmsize_t size)
{
    memory_file_t *file = static_cast<memory_file_t *>(handle);
    size_t count = std::min<size_t>(size, file->content.size() - std::min(file->at, file->content.size()));
    memcpy(to, file->content.data() + file->at, count);
    file->at += count;
    return count;
}

static tmsize_t write_memory(thandle_t handle, void *from, tmsize_t size)
{
    memory_file_t *file = static_cast<memory_file_t *>(handle);
    if (file->content.size() < file->at + size)
        file->content.resize(file->at + size);
    memcpy(file->content.data() + file->at, from, size);
    file->at += size;
    return size;
}

static toff_t seek_memory(thandle_t handle, toff_t offset, int whence)
{
    memory_file_t *file = static_cast<memory_file_t *>(handle);
    file->at = offset + (whence == SEEK_CUR ? file->at : whence == SEEK_END ? file->content.size() : 0);
    return file->at;
}

static int close_memory(thandle_t)
{
    return 0;
}
static toff_t size_memory(thandle_t handle)
{
    return static_cast<memory_file_t *>(handle)->content.size();
}

static int map_memory(thandle_t handle, void **base, toff_t *size)
{
    memory_file_t *file = static_cast<memory_file_t *>(handle);
    *base = file->content.data();
    *size = file->content.size();
    return 1;
}

static void unmap_memory(thandle_t, void *, toff_t) {}

static TIFF *open_tiff(memory_file_t &file, const char *mode)
{
    file.at = 0;
    TIFF *tiff = TIFFClientOpen("memory", mode, &file, read_memory, write_memory, seek_memory, close_memory,
                                size_memory, map_memory, unmap_memory);
    return tiff ? tiff : (give_up("libtiff cannot open"), nullptr);
}

static void set_fields(TIFF *tiff, const coding_t &coding, int lines)
{
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, line_bytes * 8);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, lines);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, lines);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, coding.compression);
    if (coding.options >= 0)
        TIFFSetField(tiff, TIFFTAG_GROUP3OPTIONS, coding.options);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, lines > 1500 ? 196.0 : 98.0);  // decides on K
}

static TIFF *new_tiff(memory_file_t &file, const coding_t &coding, int lines)
{
    TIFF *tiff = open_tiff(file, "wl");
    set_fields(tiff, coding, lines);
    return tiff;
}

// A file that holds these coded data unchanged.
static memory_file_t tiff_around(const coding_t &coding, int lines, const bytes_t &data)
{
    memory_file_t file;
    TIFF *tiff = new_tiff(file, coding, lines);
    bytes_t copy = data;
    TIFFWriteRawStrip(tiff, 0, copy.data(), copy.size());
    TIFFClose(tiff);
    return file;
}

static bytes_t libtiff_decode(const coding_t &coding, int lines, const bytes_t &data)
{
    memory_file_t file = tiff_around(coding, lines, data);
    TIFF *tiff = open_tiff(file, "r");
    bytes_t page(size_t(lines) * line_bytes);
    TIFFReadEncodedStrip(tiff, 0, page.data(), page.size());
    TIFFClose(tiff);
    return page;
}

static bytes_t libtiff_encode(const coding_t &coding, int lines, bytes_t page)
{
    memory_file_t file;
    TIFF *tiff = new_tiff(file, coding, lines);
    TIFFWriteEncodedStrip(tiff, 0, page.data(), page.size());
    TIFFClose(tiff);
    tiff = open_tiff(file, "r");
    bytes_t data(TIFFRawStripSize(tiff, 0));
    TIFFReadRawStrip(tiff, 0, data.data(), data.size());
    TIFFClose(tiff);
    return data;
}

// Our codec, with callbacks that receive and hand out lines.
static bytes_t found;  // lines decoded
static size_t found_size;
static const bytes_t *given;  // the page to encode; null once it was handed out
static bytes_t coded;
static size_t coded_size;

static void take_line(const unsigned char *line, int size)
{
    if (found_size + size > found.size())
        give_up("too many lines");
    memcpy(&found[found_size], line, size == line_bytes ? line_bytes : size);
    found_size += size;
}

static int give_lines(const unsigned char **lines, int *count)
{
    if (!given)
        return -1;
    *lines = given->data();
    *count = int(given->size() / line_bytes);
    given = nullptr;
    return line_bytes;
}

static int take_words(const uint16_t *words, int count)
{
    memcpy(&coded[coded_size], words, count * 2);
    coded_size += count * 2;
    return count * 2;
}

static void decode(const coding_t &coding, const bytes_t &data)
{
    t4_callbacks_t callbacks;
    callbacks.line = take_line;
    found_size = 0;
    t4dec(data.data(), data.size(), coding.df, callbacks);
}

static void encode_page(const coding_t &coding, const bytes_t &page)
{
    given = &page;
    coded_size = 0;
    encode_g3_fax(give_lines, take_words, coding.df, page.size() > 1500 * line_bytes);
}

static double processor_seconds()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec + now.tv_nsec * 1e-9;
}

// Processor seconds a call, averaged over as many calls as take `seconds`.
static double time_of(double seconds, const std::function<void()> &call)
{
    long calls = 0;
    double start = processor_seconds(), passed;
    do {
        call();
        calls++;
        passed = processor_seconds() - start;
    } while (passed < seconds);
    return passed / calls;
}

static double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
}

// What most faxes are like; the means are of these.
static bool is_ordinary(const std::string &page)
{
    return page.starts_with("text") || page.starts_with("scanned") || page.starts_with("form") ||
           page.starts_with("letter");
}

struct result_t {
    double ours, theirs, copy;  // seconds a page
};

static result_t in_turns(double seconds, const std::function<void()> &ours,
                         const std::function<void()> &theirs, const std::function<void()> &copy)
{
    std::vector<double> times[3];
    for (int i = 0; i < turns; i++) {
        times[0].push_back(time_of(seconds, ours));
        times[1].push_back(time_of(seconds, theirs));
        times[2].push_back(time_of(seconds / 10, copy));
    }
    return {median(times[0]), median(times[1]), median(times[2])};
}

static bytes_t read_page(const std::filesystem::path &path)
{
    std::ifstream in(path, std::ios::binary);
    std::string magic;
    int width = 0, lines = 0;
    in >> magic >> width >> lines;
    in.get();
    bytes_t page{std::istreambuf_iterator<char>(in), {}};
    if (magic != "P4" || width != line_bytes * 8 || page.size() != size_t(lines) * line_bytes)
        give_up(path.string() + ": not a page of 1728 pixels a line");
    return page;
}

static result_t measure_decoding(double seconds, const std::string &name, const coding_t &coding,
                                 bytes_t &page)
{
    int lines = int(page.size() / line_bytes);
    bytes_t data = libtiff_encode(coding, lines, page), copied(page.size());
    // The first EOL of an MH page makes a white line, and the last line needs an EOL after it.
    const size_t skipped = coding.df == 0 ? line_bytes : 0;
    if (coding.df == 0)
        data.insert(data.end(), {0x00, 0x80});
    memory_file_t file = tiff_around(coding, lines, data);
    TIFF *tiff = open_tiff(file, "r");
    bytes_t theirs(page.size());
    result_t result = in_turns(
        seconds, [&] { decode(coding, data); },
        [&] { TIFFReadEncodedStrip(tiff, 0, theirs.data(), theirs.size()); },
        [&] { memcpy(copied.data(), page.data(), page.size()); });
    TIFFClose(tiff);
    if (theirs != page || found_size < skipped + page.size() ||
        memcmp(&found[skipped], page.data(), page.size()) != 0)
        give_up(name + ", " + coding.name + ": decoded to another page");
    return result;
}

static result_t measure_encoding(double seconds, const std::string &name, const coding_t &coding,
                                 bytes_t &page)
{
    int lines = int(page.size() / line_bytes);
    bytes_t copied(page.size());
    memory_file_t file;
    TIFF *tiff = new_tiff(file, coding, lines);
    result_t result = in_turns(
        seconds, [&] { encode_page(coding, page); },
        [&] { TIFFWriteEncodedStrip(tiff, 0, page.data(), page.size()); },
        [&] { memcpy(copied.data(), page.data(), page.size()); });
    TIFFClose(tiff);
    if (libtiff_decode(coding, lines, bytes_t(coded.begin(), coded.begin() + coded_size)) != page)
        give_up(name + ", " + coding.name + ": libtiff reads another page than we encoded");
    return result;
}

static void measure_coding(double seconds, std::map<std::string, bytes_t> &pages, bool decoding)
{
    printf("\n%s\n\n", decoding ? "Decoding to lines:" : "Encoding:");
    printf(
        "| page           |      | pages/s | Mpixel/s | libtiff, pages/s |    ratio | memcpy, pages/s |\n");
    printf(
        "|----------------|------|--------:|---------:|-----------------:|---------:|----------------:|\n");
    for (const coding_t &coding : codings) {
        double product = 1;
        int factors = 0;
        for (auto &[name, page] : pages) {
            result_t r = (decoding ? measure_decoding : measure_encoding)(seconds, name, coding, page);
            double ratio = r.theirs / r.ours;
            printf("| %-14s | %-4s | %7.0f | %8.0f | %16.0f | %8.2f | %15.0f |\n", name.c_str(), coding.name,
                   1 / r.ours, page.size() * 8e-6 / r.ours, 1 / r.theirs, ratio, 1 / r.copy);
            fflush(stdout);
            if (is_ordinary(name)) {
                product *= ratio;
                factors++;
            }
        }
        printf("| ordinary pages | %-4s |         |          |                  | **%4.2f** |                "
               " |\n",
               coding.name, std::pow(product, 1.0 / factors));
    }
}

// Damaged pages: how much longer than the clean page do they take?

static double decoding_time(double seconds, const coding_t &coding, const bytes_t &data)
{
    std::vector<double> times;
    for (int i = 0; i < 5; i++)
        times.push_back(time_of(seconds, [&] { decode(coding, data); }));
    return median(times);
}

// Inverts about one bit in `distance`; replaces all by noise if that is 0.
static bytes_t damage(bytes_t data, unsigned distance)
{
    std::mt19937 random(distance);
    if (distance == 0)
        for (unsigned char &byte : data)
            byte = static_cast<unsigned char>(random());
    else
        for (size_t bit = random() % distance; bit < data.size() * 8; bit += 1 + random() % (2 * distance))
            data[bit / 8] ^= 1 << bit % 8;
    return data;
}

static void measure_damage(double seconds, std::map<std::string, bytes_t> &pages)
{
    printf("\nDamaged pages, decoding time to that of the clean page:\n\n");
    printf("| page           |      | 1 bit in 10,000 | 1 in 1,000 | 1 in 100 | 1 in 10 | noise | twice as "
           "long |\n");
    printf("|----------------|------|----------------:|-----------:|---------:|--------:|------:|------------"
           "--:|\n");
    for (const coding_t &coding : codings)
        for (auto &[name, page] : pages) {
            bytes_t data = libtiff_encode(coding, int(page.size() / line_bytes), page);
            const double clean = decoding_time(seconds, coding, data);
            printf("| %-14s | %-4s |", name.c_str(), coding.name);
            for (unsigned distance : {10000, 1000, 100, 10, 0})
                printf(" %*.2f |",
                       distance == 10000  ? 15
                       : distance == 1000 ? 10
                       : distance == 100  ? 8
                       : distance         ? 7
                                          : 5,
                       decoding_time(seconds, coding, damage(data, distance)) / clean);
            const bytes_t damaged = damage(data, 100);
            bytes_t twice = damaged;
            twice.insert(twice.end(), damaged.begin(), damaged.end());
            printf(" %13.2f |\n",
                   decoding_time(seconds, coding, twice) / decoding_time(seconds, coding, damaged));
            fflush(stdout);
        }
}

// Whole files, beside tiffcp

static bytes_t fax_file(const coding_t &coding, const std::vector<bytes_t> &pages)
{
    std::string text = "#PAGES:" + std::to_string(pages.size()) +
                       "\nRESOLUTION:1\nCOMPRESSION:" + std::to_string(coding.df) + "\n\x1d";
    bytes_t file = {0xba, 0xdb, 0xad, 0x16};
    auto put = [&file](size_t number) {
        for (int shift : {24, 16, 8, 0})
            file.push_back(static_cast<unsigned char>(number >> shift));
    };
    put(text.size());
    file.insert(file.end(), text.begin(), text.end());
    for (const bytes_t &page : pages) {
        put(page.size());
        file.insert(file.end(), page.begin(), page.end());
    }
    return file;
}

static void write_file(const std::string &path, const bytes_t &content)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(content.data()), content.size());
}

static double children_seconds()
{
    rusage usage;
    getrusage(RUSAGE_CHILDREN, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

static void measure_recoding(std::map<std::string, bytes_t> &pages)
{
    constexpr size_t count = 60;
    const std::string folder = "/dev/shm/bench_codec." + std::to_string(getpid());
    const std::string fax = folder + "/fax", from_tiff = folder + "/from.tif", to_tiff = folder + "/to.tif";
    std::filesystem::create_directory(folder);
    printf("\nRe-coding a file of %zu pages in %s, %s and tiffcp, processor milliseconds:\n\n", count,
           "/dev/shm", "t4dec_change_format");
    printf("| from | to   |   ours | tiffcp |    ratio |\n|------|------|-------:|-------:|---------:|\n");
    double product = 1;
    for (const coding_t &from : codings) {
        std::vector<bytes_t> coded_pages;
        memory_file_t tiff_file;
        TIFF *tiff = open_tiff(tiff_file, "wl");
        for (auto at = pages.begin(); coded_pages.size() < count;
             ++at == pages.end() ? void(at = pages.begin()) : void()) {
            if (!is_ordinary(at->first))
                continue;
            coded_pages.push_back(libtiff_encode(from, int(at->second.size() / line_bytes), at->second));
            set_fields(tiff, from, int(at->second.size() / line_bytes));
            TIFFWriteRawStrip(tiff, 0, coded_pages.back().data(), coded_pages.back().size());
            TIFFWriteDirectory(tiff);
        }
        TIFFClose(tiff);
        write_file(from_tiff, tiff_file.content);
        const bytes_t file = fax_file(from, coded_pages);
        for (const coding_t &to : codings) {
            if (to.df == from.df)
                continue;
            const char *option = to.df == 0 ? "g3:1d" : to.df == 1 ? "g3:2d" : "g4";
            const std::string command =
                "tiffcp -f lsb2msb -c " + std::string(option) + " " + from_tiff + " " + to_tiff;
            std::vector<double> ours, theirs;
            for (int i = 0; i < turns; i++) {
                write_file(fax, file);
                double start = processor_seconds();
                if (t4dec_change_format(fax.c_str(), to.df, 0, nullptr) != 1)
                    give_up("cannot re-code");
                ours.push_back(processor_seconds() - start);
                start = children_seconds();
                if (system(command.c_str()) != 0)
                    give_up("tiffcp fails");
                theirs.push_back(children_seconds() - start);
            }
            const double ratio = median(theirs) / median(ours);
            product *= ratio;
            printf("| %-4s | %-4s | %6.1f | %6.1f | %8.2f |\n", from.name, to.name, median(ours) * 1e3,
                   median(theirs) * 1e3, ratio);
            fflush(stdout);
        }
    }
    printf("| mean |      |        |        | **%4.2f** |\n", std::pow(product, 1.0 / 6));
    std::filesystem::remove_all(folder);
}

int main(int argc, char **argv)
{
    if (argc < 2)
        give_up("usage: bench_codec FOLDER [SECONDS]");
    double seconds = argc > 2 ? atof(argv[2]) : 0.05;
    TIFFSetWarningHandler(nullptr);

    std::map<std::string, bytes_t> pages;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1]))
        pages[entry.path().stem()] = read_page(entry.path());
    if (std::none_of(pages.begin(), pages.end(), [](const auto &page) { return is_ordinary(page.first); }))
        give_up(std::string(argv[1]) + ": none of the pages that count");
    for (bytes_t *buffer : {&found, &coded})
        buffer->resize(32 << 20);

    measure_coding(seconds, pages, true);
    measure_coding(seconds, pages, false);
    measure_recoding(pages);
    measure_damage(seconds / 5, pages);
}
