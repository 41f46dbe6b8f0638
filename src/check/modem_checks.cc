// Lines that share a directory have one inbox; the first of them in the file gives it its name.
#include "check/modem_checks.h"

#include "check/inbox_checks.h"
#include "config/munged_name.h"

namespace faxtray {

static void check_line_names(const seen_modems_t &modems, problems_t &problems)
{
    std::map<std::string, long> lines;
    for (const seen_section_t &section : modems.sections) {
        if (section.key != "default" && munged_strcmp(section.key.c_str(), "default") == 0)
            problems.add(trap("not-default"), modems.at(section.line), {section.key});
        const auto [same, added] = lines.try_emplace(section.key, section.line);
        if (!added && section.key == "default")
            problems.add(trap("second-section"), modems.at(section.line),
                         {section.key, std::to_string(same->second)});
        else if (!added)
            problems.add(trap("same-line"), modems.at(section.line),
                         {section.key, std::to_string(same->second)});
    }
}

namespace {

// The first line of a directory.
struct first_line_t {
    long line;         // where its name is set
    std::string name;  // of the inbox
};

}  // namespace

// The line of the file that makes the directory what it is; null: it is the built-in one.
static const seen_attribute_t *set_by(const seen_modems_t &modems, const seen_section_t &section)
{
    const seen_attribute_t *own = section.find("incoming_dir");
    return own || !modems.default_section ? own : modems.default_section->find("incoming_dir");
}

static void check_directory(const seen_modems_t &modems, const seen_line_t &line,
                            const std::set<std::string> &with_lists, bool on_disk, problems_t &problems)
{
    const char *directory = av_getv(line.entry.get(), "incoming_dir");
    const place_t place = modems.place_of(line.section, "incoming_dir");
    const seen_attribute_t *set = set_by(modems, *line.section);
    if (set && set->value.empty())
        problems.add(trap("incoming-is-root"), place, {directory});
    else if (with_lists.count(directory))
        problems.add(trap("lists-in-inbox"), place, {directory});
    if (!line.section->find("incoming_dir") && line.section->find("incoming_root"))
        problems.add(trap("default-directory"), modems.place_of(line.section, "incoming_root"),
                     {line.section->key, directory});
    const std::string found = on_disk ? directory_fault(directory) : "";
    if (!found.empty())
        problems.add(trap("incoming-unusable"), modems.at(line.section->line),
                     {line.section->key, directory, found});
}

// Names by which forwarders claim the inboxes. `by_name` is by munged name.
static void check_incoming_name(const seen_modems_t &modems, const seen_line_t &line,
                                std::map<std::string, first_line_t> &by_directory,
                                std::map<std::string, std::string> &by_name, problems_t &problems)
{
    const char *text = av_getv(line.entry.get(), "incoming_gui");
    const std::string name = text ? text : "", directory = av_getv(line.entry.get(), "incoming_dir");
    const place_t place = modems.place_of(line.section, "incoming_gui");
    auto [first, is_new] = by_directory.try_emplace(directory, first_line_t{place.line, name});
    if (!is_new) {
        if (munged_strcmp(first->second.name.c_str(), name.c_str()) != 0)
            problems.add(trap("ignored-name"), place,
                         {first->second.name, std::to_string(first->second.line)});
        return;
    }
    if (name.empty() || !equals_itself(name.c_str()))
        problems.add(trap("unclaimable-name"), place, {name, "a name must end in a letter or digit"});
    else if (name.find(',') != name.npos)
        problems.add(trap("unclaimable-name"), place, {name, "a comma separates names"});
    if (auto [other, added] = by_name.try_emplace(munged_key(name.c_str()), directory); !added)
        problems.add(trap("same-inbox-name"), place, {other->second, name});
}

void check_modems(const seen_modems_t &modems, const std::set<std::string> &with_lists, bool on_disk,
                  problems_t &problems)
{
    if (!modems.is_read)
        return;
    check_line_names(modems, problems);
    std::map<std::string, first_line_t> by_directory;
    std::map<std::string, std::string> by_name;
    for (const seen_line_t &line : modems.lines) {
        check_directory(modems, line, with_lists, on_disk, problems);
        check_incoming_name(modems, line, by_directory, by_name, problems);
    }
}

}  // namespace faxtray
