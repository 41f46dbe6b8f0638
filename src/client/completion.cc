#include "client/completion.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iterator>

#include "client/fax_forms.h"

namespace faxtray {

static constexpr unsigned longest_wait = 2;  // seconds: nobody waits longer for a key to have its effect

// Words and quotes.

// What the shell would make of a word that may lack its closing quote.
static std::string unquoted(const std::string &word)
{
    std::string text;
    char quote = '\0';
    for (size_t i = 0; i < word.size(); i++) {
        if (word[i] == '\\' && quote != '\'' && i + 1 < word.size())
            text += word[++i];
        else if (word[i] == quote)
            quote = '\0';
        else if (!quote && (word[i] == '"' || word[i] == '\''))
            quote = word[i];
        else
            text += word[i];
    }
    return text;
}

// With a backslash before each character that may mean something to the shell.
static std::string quoted(const std::string &text)
{
    static const std::string plain =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz_-+=:,./@%";
    std::string word;
    for (const char ch : text) {
        if (static_cast<unsigned char>(ch) < 0x80 && plain.find(ch) == std::string::npos)
            word += '\\';
        word += ch;
    }
    return word;
}

// Prints the text if it begins with what has been typed. In an open quote it goes on as it is.
static void offer(const typed_word_t &typed, const std::string &text)
{
    const bool is_line = std::none_of(text.begin(), text.end(), [](char ch) { return ch >= 0 && ch < ' '; });
    if (is_line && text.starts_with(typed.text))
        puts((typed.before + (typed.in_quotes ? text : quoted(text))).c_str());
}

// bash ends words at "=", too: --as=pdf comes as three.
static void join_values(std::vector<std::string> *words)
{
    for (size_t i = 1; i < words->size(); i++)
        if ((*words)[i] == "=" && (*words)[i - 1].starts_with("--"))
            words->erase(words->begin() + static_cast<ptrdiff_t>(i--));
}

// What the server knows. When an answer is there, so much time has gone that printing must not be cut off.

static exit_status offer_faxes(session &s)
{
    listing inbox;
    const std::vector<std::string> &before = s.chosen.faxes;
    if (!s.client.list(s.inbox, &inbox))
        return report_failure(s.client);
    alarm(0);
    for (const fax_entry &fax : inbox.faxes)
        if (const std::string id = std::to_string(fax.id);
            std::find(before.begin(), before.end(), id) == before.end())
            offer(s.chosen.typed, id);
    return EXIT_DONE;
}

static exit_status offer_recipients(session &s)
{
    recipient_list list;
    if (!s.client.get_ui(0, &list))
        return report_failure(s.client);
    alarm(0);
    for (const recipient &one : list.recipients)
        offer(s.chosen.typed, one.name);
    return EXIT_DONE;
}

static exit_status offer_inboxes(session &s)
{
    std::vector<incoming_inbox> inboxes;
    if (!s.client.get_df(&inboxes))
        return report_failure(s.client);
    alarm(0);
    for (const incoming_inbox &inbox : inboxes)
        offer(s.chosen.typed, inbox.description);
    return EXIT_DONE;
}

static void ask_server(options *chosen, exit_status (*command)(session &))
{
    chosen->timeout = longest_wait;
    chosen->may_prompt = false;
    fflush(stdout);  // what has been offered already
    signal(SIGALRM, [](int) { _exit(EXIT_DONE); });
    alarm(longest_wait);
    run(*chosen, command, false);
}

// Values, by what the help calls them.

static constexpr struct {
    const char *name;
    exit_status (*command)(session &);
} known_to_server[] = {{"FAXID", offer_faxes}, {"RECIPIENT", offer_recipients}, {"INBOX", offer_inboxes}};

static exit_status offer_values(const CLI::Option &option, options *chosen)
{
    const std::string name = option.get_positional() ? option.get_name(true) : option.get_type_name();
    for (const char *file : {"FILE", "DIR", "PATH", "COMMAND"})
        if (name == file)
            return EXIT_NOTHING;
    if (name == "FORM")
        for (const std::string &form : form_names())
            offer(chosen->typed, form);
    for (const auto &row : known_to_server)
        if (name == row.name)
            ask_server(chosen, row.command);
    return EXIT_DONE;
}

// Where the words stand.

static void parse(CLI::App &app, std::vector<std::string> words)
{
    std::reverse(words.begin(), words.end());  // as CLI11 takes them
    try {
        app.parse(words);
    } catch (const CLI::ParseError &) {  // most lines that are being typed lack something
    }
}

static bool takes_value(const CLI::Option *option)
{
    return option && option->get_items_expected_max() > 0;
}

// The option of that name, of the command or of all commands; null if there is none.
static CLI::Option *find_option(CLI::App &app, CLI::App *command, const std::string &word)
{
    if (!word.starts_with('-'))
        return nullptr;
    CLI::Option *found = command ? command->get_option_no_throw(word) : nullptr;
    return found ? found : app.get_option_no_throw(word);
}

static void offer_options(CLI::App &app, const typed_word_t &typed)
{
    for (const CLI::Option *option : app.get_options()) {
        if (option == app.get_help_ptr() && app.get_parent())
            continue;  // all commands have it
        for (const std::string &name : option->get_lnames())
            offer(typed, "--" + name);
        for (const std::string &name : option->get_snames())
            offer(typed, "-" + name);
    }
}

// The argument of the command that comes next, and then its options.
static exit_status offer_arguments(CLI::App *command, options *chosen)
{
    for (CLI::Option *argument :
         command->get_options([](CLI::Option *one) { return one->get_positional(); })) {
        if (static_cast<int>(argument->count()) >= argument->get_items_expected_max())
            continue;
        for (std::string place : {"newest", "oldest"})
            if (argument->get_name(true) == "FAXID" && (*argument->get_validator(0))(place).empty())
                offer(chosen->typed, place);
        return offer_values(*argument, chosen);
    }
    offer_options(*command, chosen->typed);
    return EXIT_DONE;
}

exit_status complete(CLI::App &app, options *chosen, std::vector<std::string> words)
{
    join_values(&words);
    const std::string last = words.empty() ? "" : words.back();
    if (!words.empty())
        words.pop_back();
    for (std::string &word : words)
        word = unquoted(word);
    typed_word_t &typed = chosen->typed;
    typed = {"", unquoted(last), last.starts_with('"') || last.starts_with('\'')};
    if (const size_t equals = typed.text.find('=');
        typed.text.starts_with("--") && equals != std::string::npos) {
        words.push_back(typed.text.substr(0, equals));
        typed.before = typed.text.substr(0, equals + 1);
        typed.text.erase(0, equals + 1);
    }
    auto command = [&]() -> CLI::App * {
        const std::vector<CLI::App *> given = app.get_subcommands();
        return given.empty() ? nullptr : given.front();
    };
    parse(app, words);
    CLI::Option *option = words.empty() ? nullptr : find_option(app, command(), words.back());
    if (takes_value(option)) {  // the word is its value, and the words before were not understood without it
        words.pop_back();
        parse(app, words);
        return offer_values(*option, chosen);
    }
    if (command() && !typed.text.starts_with('-'))
        return offer_arguments(command(), chosen);
    if (command())
        offer_options(*command(), typed);
    if (typed.text.starts_with('-'))
        offer_options(app, typed);
    else
        for (const CLI::App *one : app.get_subcommands([](CLI::App *) { return true; }))
            offer(typed, one->get_name());
    return EXIT_DONE;
}

}  // namespace faxtray
