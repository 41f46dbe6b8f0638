// panel: what is known of the fax that is looked at, or of the chosen ones, and what can be done with them.
import { address } from "./api.js";
import { marksOf } from "./deliveries.js";
import { byId, el, icon, outside } from "./dom.js";
import { exactTime, shortTime, size } from "./format.js";
import { language, t } from "./texts.js";

let drawn = ""; // what the panel was made from last

// Whether the panel shows this already: then it is left alone, with the focus and what was opened in it.
function isDrawn(...parts) {
  const before = drawn;
  drawn = JSON.stringify([language(), ...parts]);
  return drawn === before;
}

// `about`: the server's account of the fax, or null as long as it is not there. `remove` is called by the button.
export function showFax(inbox, fax, about, remove) {
  if (isDrawn(inbox.handle, fax, about !== null, marksOf(inbox, fax.tag)))
    return;
  byId("about").replaceChildren(...[
    el("h1", {}, outside(fax.sender || t("fax.unknown"))),
    el("p", { class: "soft" }, facts(fax)),
    fax.subaddress ? el("p", {}, t("fax.to", { subaddress: fax.subaddress })) : null,
    deliveredMark(inbox, fax),
    fax.problem ? el("p", { class: "warning", text: t("fax.problemlong") }) : null].filter(Boolean));
  byId("actions").replaceChildren(
    el("p", { class: "buttons" }, ...downloads(inbox, fax), removeButton(t("remove.button"), remove)),
    ...(about ? [headerValues(about)] : []));
}

export function showChosen(inbox, faxes, remove) {
  if (isDrawn(inbox.handle, faxes))
    return;
  const list = faxes.map((fax) => el("li", {}, outside(fax.sender || t("fax.unknown")),
    el("span", { class: "soft", text: ` ${shortTime(fax.mtime)}` })));
  byId("about").replaceChildren(
    el("h1", { text: t("fax.chosen", { n: faxes.length }) }),
    el("ul", { class: "chosen" }, ...list));
  byId("actions").replaceChildren(
    el("p", { class: "buttons" }, removeButton(t("remove.many", { n: faxes.length }), remove)));
}

export function clear() {
  drawn = "";
  byId("about").replaceChildren();
  byId("actions").replaceChildren();
}

function facts(fax) {
  const pages = fax.pages === null || fax.pages === undefined ? "" : `${t("fax.pages", { n: fax.pages })} · `;
  return el("span", {}, el("time", { "data-seconds": fax.mtime, text: exactTime(fax.mtime) }),
    el("br"), pages, size(fax.size));
}

// To whom it was delivered in this session, or null.
export function deliveredMark(inbox, fax) {
  const labels = marksOf(inbox, fax.tag);
  return labels.length
    ? el("span", { class: "mark good" }, icon("done"), t("deliver.mark", { name: labels.join(", ") })) : null;
}

function downloads(inbox, fax) {
  const names = { pdf: "PDF", tiff: "TIFF", fax: t("fax.original") };
  return Object.entries(names).map(([as, name]) => el("a", {
    class: "button", download: true, "aria-label": `${t("fax.download")}: ${name}`, "data-as": as,
    href: address("download", { inbox: inbox.handle, id: fax.id, tag: fax.tag, as }) }, icon("down"), name));
}

function removeButton(text, remove) {
  return el("button", { type: "button", class: "danger", onclick: remove }, icon("remove"), text);
}

function headerValues(about) {
  const values = about.header.flatMap(([name, value]) => [el("dt", {}, outside(name)), el("dd", {}, outside(value))]);
  return el("details", { class: "header" }, el("summary", { text: t("fax.header") }),
    el("dl", {}, el("dt", { text: t("deliver.type") }), el("dd", {}, outside(about.name)), ...values));
}
