// texts: everything that the page says, in each of its languages.
//
// A further language is a further name in `languages` and a further text in each row of `table`. {name} stands for a
// value; "one|other" are the forms for one and for several, chosen by the value {n}.
import { plain } from "./plain.js";

export const languages = { en: "English", de: "Deutsch" };

const table = {
  "page.title": { en: "Faxes", de: "Faxe" },
  "page.skip": { en: "Skip to the list of faxes", de: "Zur Liste der Faxe" },
  "page.language": { en: "Language", de: "Sprache" },
  "page.inboxes": { en: "Inboxes", de: "Eingänge" },
  "page.mine": { en: "My faxes", de: "Meine Faxe" },
  "page.keys": { en: "Keyboard", de: "Tastatur" },
  "page.logout": { en: "Log out", de: "Abmelden" },
  "page.user": { en: "Logged in as {user}", de: "Angemeldet als {user}" },
  "page.close": { en: "Close", de: "Schließen" },
  "page.away": { en: "No connection. What you see may be out of date; trying again by itself …",
    de: "Keine Verbindung. Die Anzeige ist vielleicht veraltet; neuer Versuch von selbst …" },
  "page.unreachable": { en: "The fax server does not answer. What you see may be out of date; trying again by itself …",
    de: "Der Faxserver antwortet nicht. Die Anzeige ist vielleicht veraltet; neuer Versuch von selbst …" },
  "page.again": { en: "Connected again.", de: "Wieder verbunden." },
  "page.failed": { en: "That did not work: {reason}", de: "Das ging nicht: {reason}" },
  "page.noanswer": { en: "no answer", de: "keine Antwort" },
  "page.toomany": { en: "That many at once do not work: choose at most {n} faxes.",
    de: "So viele auf einmal gehen nicht: bitte höchstens {n} Faxe auswählen." },
  "page.unsure": { en: "No answer came. It may have been done all the same: look before you try again.",
    de: "Es kam keine Antwort. Vielleicht ist es trotzdem geschehen: bitte erst nachsehen." },

  "login.title": { en: "Fax inbox", de: "Faxeingang" },
  "login.user": { en: "User name", de: "Benutzername" },
  "login.password": { en: "Password", de: "Passwort" },
  "login.button": { en: "Log in", de: "Anmelden" },
  "login.wrong": { en: "User name or password is wrong.", de: "Benutzername oder Passwort ist falsch." },
  "login.locked": { en: "Too many wrong passwords. Try again in 10 minutes.",
    de: "Zu viele falsche Passwörter. Bitte in 10 Minuten noch einmal." },
  "login.unreachable": { en: "The fax server does not answer. Try again in a moment.",
    de: "Der Faxserver antwortet nicht. Bitte gleich noch einmal." },
  "login.ended": { en: "Your session has ended. Log in again to go on where you were.",
    de: "Die Sitzung ist beendet. Nach dem Anmelden geht es an derselben Stelle weiter." },
  "login.out": { en: "You are logged out.", de: "Sie sind abgemeldet." },

  "list.label": { en: "Faxes, newest first", de: "Faxe, neueste zuerst" },
  "list.filter": { en: "Filter", de: "Filtern" },
  "list.filterby": { en: "Filter by sender, name, subaddress", de: "Nach Absender, Name, Subadresse filtern" },
  "list.count": { en: "{n} fax|{n} faxes", de: "{n} Fax|{n} Faxe" },
  "list.matches": { en: "{n} of {all} matches|{n} of {all} match", de: "{n} von {all} passt|{n} von {all} passen" },
  "list.searching": { en: "{n} found, searched {read} of {all} …", de: "{n} gefunden, {read} von {all} durchsucht …" },
  "list.loading": { en: "Loading …", de: "Lädt …" },
  "list.empty": { en: "No faxes. New ones appear here by themselves.",
    de: "Keine Faxe. Neue erscheinen hier von selbst." },
  "list.nomatch": { en: "No fax matches the filter.", de: "Kein Fax passt zum Filter." },
  "list.new": { en: "{n} new fax|{n} new faxes", de: "{n} neues Fax|{n} neue Faxe" },
  "list.isnew": { en: "new", de: "neu" },
  "list.choose": { en: "Choose the fax from {sender}", de: "Fax von {sender} auswählen" },
  "list.all": { en: "Choose all shown", de: "Alle gezeigten auswählen" },
  "list.chosen": { en: "{n} chosen", de: "{n} ausgewählt" },
  "list.none": { en: "Clear", de: "Aufheben" },
  "list.back": { en: "Back to the list", de: "Zurück zur Liste" },

  "fax.of": { en: "fax from {sender}, {time}", de: "Fax von {sender}, {time}" },
  "fax.unknown": { en: "Unknown sender", de: "Absender unbekannt" },
  "fax.pages": { en: "{n} page|{n} pages", de: "{n} Seite|{n} Seiten" },
  "fax.to": { en: "for {subaddress}", de: "für {subaddress}" },
  "fax.problem": { en: "Not a sound fax", de: "Kein heiles Fax" },
  "fax.problemlong": { en: "This file is no sound fax, so it may not show. It can be downloaded as it is.",
    de: "Diese Datei ist kein heiles Fax und lässt sich vielleicht nicht zeigen. Man kann sie herunterladen, wie sie ist." },
  "fax.pick": { en: "Choose a fax to look at it", de: "Ein Fax zum Ansehen wählen" },
  "fax.pickhint": { en: "j and k go through the list, Enter opens, ? shows all keys.",
    de: "j und k gehen durch die Liste, Enter öffnet, ? zeigt alle Tasten." },
  "fax.whole": { en: "Pages of the fax", de: "Seiten des Faxes" },
  "fax.page": { en: "Page {n} of {all}", de: "Seite {n} von {all}" },
  "fax.damaged": { en: "{n} line of this page arrived damaged.|{n} lines of this page arrived damaged.",
    de: "{n} Zeile dieser Seite kam beschädigt an.|{n} Zeilen dieser Seite kamen beschädigt an." },
  "fax.cut": { en: "The file ends before its last page: something is missing.",
    de: "Die Datei endet vor ihrer letzten Seite: Es fehlt etwas." },
  "fax.unshown": { en: "This page cannot be shown.", de: "Diese Seite lässt sich nicht zeigen." },
  "fax.nopages": { en: "This fax has no pages.", de: "Dieses Fax hat keine Seiten." },
  "fax.retry": { en: "Try again", de: "Noch einmal" },
  "fax.changed": { en: "This fax has changed meanwhile, or was removed. The list is up to date.",
    de: "Dieses Fax hat sich inzwischen geändert oder wurde entfernt. Die Liste ist auf dem neuesten Stand." },
  "fax.tools": { en: "View", de: "Ansicht" },
  "fax.position": { en: "{n} of {all}", de: "{n} von {all}" },
  "fax.previous": { en: "Previous fax", de: "Voriges Fax" },
  "fax.next": { en: "Next fax", de: "Nächstes Fax" },
  "fax.larger": { en: "Larger", de: "Größer" },
  "fax.smaller": { en: "Smaller", de: "Kleiner" },
  "fax.fit": { en: "Fit to width", de: "An Breite anpassen" },
  "fax.turn": { en: "Rotate", de: "Drehen" },
  "fax.print": { en: "Print", de: "Drucken" },
  "fax.details": { en: "Details", de: "Einzelheiten" },
  "fax.header": { en: "Header values", de: "Angaben im Fax" },
  "fax.download": { en: "Download", de: "Herunterladen" },
  "fax.original": { en: "Fax file", de: "Faxdatei" },
  "fax.chosen": { en: "{n} fax chosen|{n} faxes chosen", de: "{n} Fax ausgewählt|{n} Faxe ausgewählt" },

  "deliver.title": { en: "Deliver to", de: "Zustellen an" },
  "deliver.type": { en: "Name", de: "Name" },
  "deliver.people": { en: "People and groups", de: "Personen und Gruppen" },
  "deliver.group": { en: "group", de: "Gruppe" },
  "deliver.nobody": { en: "Nobody of that name.", de: "Niemand dieses Namens." },
  "deliver.button": { en: "Deliver to {name}", de: "Zustellen an {name}" },
  "deliver.again": { en: "Deliver again to {name}", de: "Noch einmal an {name}" },
  "deliver.choose": { en: "Choose a name", de: "Einen Namen wählen" },
  "deliver.open": { en: "Deliver", de: "Zustellen" },
  "deliver.log": { en: "Deliveries of this session", de: "Zustellungen dieser Sitzung" },
  "deliver.nolog": { en: "None yet.", de: "Noch keine." },
  "deliver.waiting": { en: "waiting", de: "wartet" },
  "deliver.running": { en: "being delivered …", de: "wird zugestellt …" },
  "deliver.delivered": { en: "delivered", de: "zugestellt" },
  "deliver.failed": { en: "not delivered", de: "nicht zugestellt" },
  "deliver.changed": { en: "not delivered: changed meanwhile", de: "nicht zugestellt: inzwischen geändert" },
  "deliver.lost": { en: "outcome unknown: the web server no longer knows of it", de: "Ausgang unbekannt: der Webserver weiß nichts mehr davon" },
  "deliver.mark": { en: "Delivered to {name}", de: "Zugestellt an {name}" },
  "deliver.told": { en: "Delivered to {name}: {n} fax|Delivered to {name}: {n} faxes", de: "Zugestellt an {name}: {n} Fax|Zugestellt an {name}: {n} Faxe" },
  "deliver.toldfailed": { en: "Not delivered to {name}. The reason is under Deliveries.",
    de: "Nicht zugestellt an {name}. Der Grund steht bei den Zustellungen." },

  "remove.button": { en: "Remove", de: "Entfernen" },
  "remove.many": { en: "Remove {n} fax|Remove {n} faxes", de: "{n} Fax entfernen|{n} Faxe entfernen" },
  "remove.title": { en: "Remove this fax?|Remove these {n} faxes?", de: "Dieses Fax entfernen?|Diese {n} Faxe entfernen?" },
  "remove.forgood": { en: "It is removed from the server, for good.|They are removed from the server, for good.",
    de: "Es wird endgültig vom Server entfernt.|Sie werden endgültig vom Server entfernt." },
  "remove.undeliveredone": { en: "It was not delivered in this session.", de: "Es wurde in dieser Sitzung nicht zugestellt." },
  "remove.undelivered": { en: "{n} was not delivered in this session.|{n} were not delivered in this session.",
    de: "{n} wurde in dieser Sitzung nicht zugestellt.|{n} wurden in dieser Sitzung nicht zugestellt." },
  "remove.more": { en: "and {n} more", de: "und {n} weitere" },
  "remove.keep": { en: "Keep", de: "Behalten" },
  "remove.running": { en: "It is being delivered. Remove it once that has ended.",
    de: "Es wird gerade zugestellt. Entfernen geht, sobald das beendet ist." },
  "remove.done": { en: "{n} fax removed.|{n} faxes removed.", de: "{n} Fax entfernt.|{n} Faxe entfernt." },
  "remove.changed": { en: "{n} fax was not removed: changed meanwhile. The list is up to date.|{n} faxes were not removed: changed meanwhile. The list is up to date.",
    de: "{n} Fax wurde nicht entfernt: inzwischen geändert. Die Liste ist auf dem neuesten Stand.|{n} Faxe wurden nicht entfernt: inzwischen geändert. Die Liste ist auf dem neuesten Stand." },
  "remove.failed": { en: "Not removed: {reason}", de: "Nicht entfernt: {reason}" },

  "keys.title": { en: "Keyboard", de: "Tastatur" },
  "keys.jk": { en: "next, previous fax", de: "nächstes, voriges Fax" },
  "keys.enter": { en: "open the fax", de: "Fax öffnen" },
  "keys.escape": { en: "back to the list", de: "zurück zur Liste" },
  "keys.x": { en: "choose the fax, for several at once", de: "Fax auswählen, für mehrere zugleich" },
  "keys.d": { en: "deliver: type a name, Enter delivers (own faxes: download as PDF)",
    de: "zustellen: Namen tippen, Enter stellt zu (eigene Faxe: als PDF laden)" },
  "keys.delete": { en: "remove", de: "entfernen" },
  "keys.slash": { en: "filter the list", de: "Liste filtern" },
  "keys.zoom": { en: "larger, smaller, fit to width", de: "größer, kleiner, an Breite anpassen" },
  "keys.turn": { en: "rotate", de: "drehen" },
  "keys.help": { en: "this page", de: "diese Seite" },
};

let current = "en";

export function language() {
  return current;
}

// The language that was chosen here before, else the browser's, else English.
export function startLanguage() {
  const wanted = [localStorage.getItem("language"), ...navigator.languages.map((name) => name.split("-")[0])];
  setLanguage(wanted.find((name) => name in languages) ?? "en");
}

export function setLanguage(name) {
  current = name;
  document.documentElement.lang = name;
}

export function chooseLanguage(name) {
  localStorage.setItem("language", name);
  setLanguage(name);
}

// Values that are text may come from outside: they are made plain, and isolated (U+2068, U+2069), so that their
// direction does not affect the sentence.
export function t(key, values = {}) {
  const [one, other] = table[key][current].split("|");
  const form = other && new Intl.PluralRules(current).select(values.n) !== "one" ? other : one;
  return form.replace(/\{(\w+)\}/g, (_, name) =>
    typeof values[name] === "number" ? values[name].toLocaleString(current) : `\u2068${plain(values[name])}\u2069`);
}

// The texts of elements that the page comes with: data-text names the text, data-label that of the accessible name,
// which is also the hint on hover, data-hint that of an empty field.
export function translate(root = document) {
  for (const element of root.querySelectorAll("[data-text]"))
    element.textContent = t(element.dataset.text);
  for (const element of root.querySelectorAll("[data-label]")) {
    element.setAttribute("aria-label", t(element.dataset.label));
    if (element.matches("button, a"))
      element.title = t(element.dataset.label);
  }
  for (const element of root.querySelectorAll("[data-hint]"))
    element.placeholder = t(element.dataset.hint);
}
