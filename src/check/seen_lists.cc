// The readers are the daemon's; this listens to what they make of each line (info_observe).
#include "check/seen_lists.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "config/info_lines.h"
#include "config/modem_list_file.h"
#include "config/user_list_file.h"
#include "config/user_settings.h"
#include "util/paths.h"

namespace faxtray {

const seen_attribute_t *seen_section_t::find(const std::string &name) const
{
    const auto found = index.find(name);
    return found == index.end() ? nullptr : &attributes[found->second];
}

place_t seen_list_t::place_of(const seen_section_t *section, const char *attribute) const
{
    for (const seen_section_t *place : {section, default_section})
        if (const seen_attribute_t *found = place ? place->find(attribute) : nullptr)
            return at(found->line);
    return at(section ? section->line : 0);
}

const seen_section_t *seen_users_t::section_of(const av_list_t *user) const
{
    if (strcmp(user->key, "admin") == 0)
        return admin_section;
    const auto found = by_key.find(user->key);
    return found == by_key.end() ? nullptr : found->second;
}

// Listening

namespace {

// Hears of the lines of one list.
class listener_t {
public:
    listener_t(seen_list_t &list, problems_t &problems) : list_(list), problems_(problems) {}
    void hear(const info_news_t &news);
    void finish();  // at the end of the file

private:
    void add_section(const info_news_t &news);
    void add_attribute(const info_news_t &news);
    void lose(const trap_t *trap, const info_news_t &news, long count);

    seen_list_t &list_;
    problems_t &problems_;
    const trap_t *loss_ = nullptr;  // why lines are dropped just now; null: they are not
    long loss_line_ = 0, lost_ = 0;
};

}  // namespace

static const trap_t *fault_of(info_event what)
{
    switch (what) {
    case info_event::TOO_LONG:
        return trap("line-too-long");
    case info_event::ENDS_EARLY:
        return trap("line-ends-early");
    case info_event::AFTER_KEY:
        return trap("after-key");
    case info_event::NO_EQUALS:
        return trap("no-equals");
    case info_event::NAME_CUT:
        return trap("name-too-long");
    case info_event::VALUE_CUT:
        return trap("value-too-long");
    case info_event::COMMENT:
        return trap("comment-in-value");
    default:
        return trap("open-quote");
    }
}

void listener_t::add_attribute(const info_news_t &news)
{
    seen_section_t &section = list_.sections.back();
    if (const seen_attribute_t *earlier = section.find(news.text))
        problems_.add(trap("repeated-attribute"), list_.at(news.line),
                      {news.text, std::to_string(earlier->line)});
    section.index[news.text] = section.attributes.size();
    section.attributes.push_back({news.text, news.value, news.line});
}

void listener_t::add_section(const info_news_t &news)
{
    seen_section_t &section = list_.sections.emplace_back();
    section.key = news.text;
    section.line = news.line;
    if (section.key == "default" && !list_.default_section)
        list_.default_section = &section;
    if (section.key == "admin" && !list_.admin_section)
        list_.admin_section = &section;
}

// From this line on, lines are dropped; `count` of them so far.
void listener_t::lose(const trap_t *trap, const info_news_t &news, long count)
{
    finish();
    loss_ = trap;
    loss_line_ = news.line;
    lost_ = count;
}

void listener_t::finish()
{
    if (!loss_)
        return;
    const bool with_verb = loss_ == trap("no-section") || loss_ == trap("byte-order-mark");
    problems_.add(loss_, list_.at(loss_line_), {with_verb ? lines_are(lost_) : lines_text(lost_)});
    loss_ = nullptr;
}

void listener_t::hear(const info_news_t &news)
{
    switch (news.what) {
    case info_event::SECTION:
        finish();
        add_section(news);
        break;
    case info_event::ATTRIBUTE:
        add_attribute(news);
        break;
    case info_event::NO_NAME:
        lose(trap("no-name"), news, 0);
        break;
    case info_event::NO_BRACKET:
        lose(trap("no-bracket"), news, 0);
        break;
    case info_event::DROPPED:
        if (loss_)
            lost_++;
        else
            lose(news.line == 1 && strncmp(news.text, "\xEF\xBB\xBF", 3) == 0 ? trap("byte-order-mark")
                                                                              : trap("no-section"),
                 news, 1);
        break;
    default:
        problems_.add(fault_of(news.what), list_.at(news.line), {news.text});
        break;
    }
}

// Reading

// Tells why the file cannot be read, if so.
static void look_at(seen_list_t *list, const list_look_t &look, const char *missing, problems_t &problems)
{
    list->is_read = look.error == 0;
    if (look.error == ENOENT)
        problems.add(trap("list-missing"), list->at(0), {missing});
    else if (look.error == EBUSY)
        problems.add(trap("list-in-use"), list->at(0));
    else if (look.error != 0)
        problems.add(trap("list-unreadable"), list->at(0), {strerror(look.error)});
}

static bool is_public(const char *path)
{
    struct stat st;
    return stat(path, &st) == 0 && S_ISREG(st.st_mode) && (st.st_mode & S_IROTH);
}

// The path as given, or as found.
static std::string path_of(const char *path, const char *name)
{
    c_string found;
    path = path_or_found(path, name, &found);
    return path ? path : name;
}

// While it exists, the readers tell `listener` of the lines, once it is listening: the readers go through the
// file for its special sections first.
namespace {
struct observation_t {
    explicit observation_t(listener_t &listener)
    {
        info_observe([this, &listener](const info_news_t &news) {
            if (listening)
                listener.hear(news);
        });
    }
    ~observation_t() { info_observe({}); }
    observation_t(const observation_t &) = delete;
    observation_t &operator=(const observation_t &) = delete;

    bool listening = false;
};
}  // namespace

static void keep_user(seen_users_t *list, av_list_ptr user)
{
    if (*user->key && !is_special_name(user->key))
        list->users.update(std::move(user));
}

void see_users(const char *path, problems_t &problems, seen_users_t *list)
{
    ui_open("/dev/null", nullptr);
    list->built_in.reset(ui_get("default"));
    list->built_in_admin.reset(ui_get_no_defaults("admin"));

    list->path = path_of(path, "USER_LIST.info");
    listener_t listener(*list, problems);
    observation_t observation(listener);
    const list_look_t look = ui_look(path);
    look_at(list, look, "faxtrayd knows only the user admin, whom it admits with any password", problems);
    if (list->is_read && is_public(list->path.c_str()))
        problems.add(trap("list-public"), list->at(0));
    ui_open(path, nullptr);
    list->defaults.reset(ui_get("default"));
    list->users.update(av_list_ptr(ui_get("admin")));
    observation.listening = true;
    while (av_list_ptr user{ui_get(nullptr)})
        keep_user(list, std::move(user));
    if (list->is_read && ui_error() != INFO_OK)
        problems.add(trap("list-unreadable"), list->at(0), {strerror(EIO)});
    ui_close();
    listener.finish();
    for (const seen_section_t &section : list->sections)
        list->by_key[section.key] = &section;
}

// The sections from number `first` on were read for the entry, and all but the last left out.
static void keep_line(seen_modems_t *list, size_t first, av_list_ptr entry, problems_t &problems)
{
    const size_t end = list->sections.size();
    for (size_t i = first; i + (entry ? 1 : 0) < end; i++)
        problems.add(trap("invalid-incoming"), list->place_of(&list->sections[i], "incoming_dir"),
                     {list->sections[i].key});
    if (entry && strcmp(entry->key, "default") != 0)
        list->lines.push_back({&list->sections.back(), std::move(entry)});
}

void see_modems(const char *path, problems_t &problems, seen_modems_t *list)
{
    mi_open("/dev/null", nullptr);
    list->built_in.reset(mi_get("default"));

    list->path = path_of(path, "MODEMS.info");
    listener_t listener(*list, problems);
    observation_t observation(listener);
    const list_look_t look = mi_look(path);
    look_at(list, look, "faxtrayd answers every request with error 21", problems);
    mi_open(path, nullptr);
    list->defaults.reset(mi_get("default"));
    observation.listening = true;
    for (bool more = list->is_read; more;) {
        const size_t first = list->sections.size();
        av_list_ptr entry(mi_get(nullptr));
        more = entry != nullptr;
        keep_line(list, first, std::move(entry), problems);
    }
    if (list->is_read && mi_error() != INFO_OK)
        problems.add(trap("list-unreadable"), list->at(0), {strerror(EIO)});
    mi_close();
    listener.finish();
}

}  // namespace faxtray
