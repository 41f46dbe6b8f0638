#include "client/html_page.h"

#include "client/output.h"
#include "util/command_output.h"

namespace faxtray {

const std::string html_mark = "<!DOCTYPE html>\n<!-- written by faxtray list --html, which replaces it -->\n";

static constexpr char style[] = R"(
:root { color-scheme: light dark; --ground: #f4f4f1; --card: #fff; --line: #d8d8d2; --soft: #5d5d57; --link: #0b57a4 }
@media (prefers-color-scheme: dark) {
  :root { --ground: #1b1c1e; --card: #26282b; --line: #3d4044; --soft: #a5a8ad; --link: #8ab8f0 }
  img { filter: brightness(.86) }
}
body { margin: 0 auto; padding: 1rem; max-width: 72rem; background: var(--ground); font: 1rem/1.45 system-ui, sans-serif }
h1 { margin: 0; font-size: 1.4rem }
h2 { margin: 0; font-size: 1.05rem }
h1, h2, p { overflow-wrap: anywhere }
p { margin: .2rem 0 }
a { color: var(--link) }
.soft { color: var(--soft) }
ul { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 20rem), 1fr)); gap: 1rem; margin: 1rem 0; padding: 0; list-style: none }
li { display: flex; gap: 1rem; padding: .8rem; background: var(--card); border: 1px solid var(--line); border-radius: .4rem }
li div { min-width: 0 }
img { display: block; width: 7rem; height: 9.9rem; object-fit: contain; object-position: top; background: #fff; border: 1px solid var(--line) }
)";

std::string html_text(const std::string &text)
{
    std::string escaped;
    for (const char ch : plain_utf8(text)) {
        if (ch == '&' || ch == '<' || ch == '>' || ch == '"' || ch == '\'')
            escaped += "&#" + std::to_string(ch) + ";";
        else
            escaped += ch;
    }
    return escaped;
}

// A time as people read it, to the minute, and for programs.
static std::string html_time(time_t t)
{
    const std::string shown = date_text(t).substr(0, 16);
    char exact[64];
    tm parts;
    if (!gmtime_r(&t, &parts) || !strftime(exact, sizeof exact, "%Y-%m-%dT%H:%M:%SZ", &parts))
        return shown;
    return std::string("<time datetime=\"") + exact + "\">" + shown + "</time>";
}

static std::string counted(long n, const std::string &what)
{
    return std::to_string(n) + " " + what + (n == 1 ? "" : what.ends_with('x') ? "es" : "s");
}

// The policy is a second fence: nothing runs here even if some text were not escaped.
std::string html_head(const std::string &title, size_t faxes, time_t now)
{
    const std::string text = html_text(title);
    return html_mark + "<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n" +
           "<meta http-equiv=\"Content-Security-Policy\" content=\"script-src 'none'; object-src 'none'; "
           "base-uri 'none'; form-action 'none'\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
           "<meta name=\"referrer\" content=\"no-referrer\">\n<title>" +
           text + "</title>\n<style>" + style + "</style>\n</head>\n<body>\n<h1>" + text +
           "</h1>\n<p class=\"soft\">" + (faxes ? counted(static_cast<long>(faxes), "fax") : "No faxes") +
           ", as of " + html_time(now) + (faxes > 1 ? ", the newest first" : "") + "</p>\n<ul>\n";
}

// Text of the fax is isolated (bdi), so that it cannot turn around the direction of what follows.
std::string html_row(const fax_entry &fax, const std::string &file, const std::string &note)
{
    const std::string sender = html_text(fax.sender.empty() ? "Unknown" : fax.sender);
    std::string row = "<li>\n";
    if (!file.empty())
        row += "<a href=\"" + file + ".pdf\"><img src=\"" + file +
               ".png\" alt=\"First page of the fax from " + sender + "\" loading=\"lazy\"></a>\n";
    row += "<div>\n<h2><bdi>" + sender + "</bdi></h2>\n<p>" + html_time(fax.mtime) +
           (fax.pages < 0 ? "" : ", " + counted(fax.pages, "page")) + "</p>\n";
    row += file.empty() ? "<p>" + html_text(note) + "</p>\n"
                        : "<p><a href=\"" + file + ".pdf\">Open as PDF</a></p>\n";
    return row + "<p class=\"soft\"><bdi>" + html_text(fax.name) + "</bdi></p>\n</div>\n</li>\n";
}

std::string html_end()
{
    return "</ul>\n</body>\n</html>\n";
}

}  // namespace faxtray
