// notices: what the page says in passing, seen and read aloud; questions before something is removed; and the line that
// stays as long as the server does not answer.
import { byId, el, icon } from "./dom.js";
import { t } from "./texts.js";

const shownFor = 6000; // milliseconds
const mostAtOnce = 500; // faxes in one request

// A notice goes by itself; one about trouble stays until it is closed.
export function say(text, trouble = false) {
  const notice = el("div", { class: trouble ? "notice bad" : "notice" }, el("span", { text }));
  if (trouble)
    notice.append(el("button", { class: "plain", type: "button", "aria-label": t("page.close"), onclick: () => notice.remove() },
                     icon("close")));
  else
    setTimeout(() => notice.remove(), shownFor);
  byId("notices").append(notice);
}

// The reason that a Refusal gives, for sentences.
export function reason(error) {
  return error.message || t("page.noanswer");
}

// Tells that something asked for was not done, or perhaps was.
export function sayFailed(error) {
  if (error.word === "away")
    say(t("page.unsure"), true);
  else if (error.word !== "session") // the log-in page tells that
    say(t("page.failed", { reason: reason(error) }), true);
}

// The server's absence and return are told once each.
export function connection(error) {
  const known = { away: "page.away", unreachable: "page.unreachable", busy: "page.unreachable" };
  const text = !error ? "" : known[error.word] ? t(known[error.word]) : t("page.failed", { reason: reason(error) });
  const banner = byId("banner");
  if (banner.textContent === text)
    return;
  const returned = !text && banner.textContent;
  banner.textContent = text;
  if (returned)
    say(t("page.again"));
}

// Whether these are more faxes than the server takes at once, which is then told.
export function tooMany(faxes) {
  if (faxes.length > mostAtOnce)
    say(t("page.toomany", { n: mostAtOnce }), true);
  return faxes.length > mostAtOnce;
}

// A promise of whether the answer was yes. Escape is no.
export function ask({ title, body, yes, no }) {
  const dialog = byId("ask");
  byId("ask-title").textContent = title;
  byId("ask-body").replaceChildren(...body);
  byId("ask-yes").textContent = yes;
  byId("ask-no").textContent = no;
  dialog.returnValue = "no";
  dialog.showModal();
  return new Promise((resolve) =>
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "yes"), { once: true }));
}
