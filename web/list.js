// list: the rows of an inbox. Faxes are read in pages as the end of the list is scrolled to, thumbnails as their rows are;
// rows out of sight cost no layout (content-visibility in style.css).
import { address } from "./api.js";
import { byId, el, icon, outside } from "./dom.js";
import { shortTime, size } from "./format.js";
import { sayFailed } from "./notices.js";
import { deliveredMark } from "./panel.js";
import { faxAddress } from "./route.js";
import { t } from "./texts.js";

const step = 100;   // rows drawn at a time
const settled = 80; // milliseconds a row is in sight before its thumbnail is asked for: not while rows fly past

let inbox = null;     // the one shown
let open = null;      // tag of the fax that is looked at
let rows = new Map(); // tag to row, of every fax drawn so far
let limit = step;     // rows drawn at most: more as the end is scrolled to
let lastTicked = null; // for a range of ticks
let searching = false;
export const events = new EventTarget(); // "chosen" after a change of ticks, "drawn" when the rows are in step

export function start() {
  const end = new IntersectionObserver((seen) => seen.some((entry) => entry.isIntersecting) && readOn(), {
    root: byId("rows-scroll"), rootMargin: "600px" });
  end.observe(byId("rows-end"));
  byId("filter").addEventListener("input", () => {
    limit = step;
    draw();
    search();
  });
  byId("filter").addEventListener("keydown", (event) => {
    if (event.key === "Enter" || event.key === "ArrowDown" || event.key === "Escape") {
      event.preventDefault();
      event.stopPropagation(); // once the focus has moved, these keys would be shortcuts
      if (event.key === "Escape") {
        byId("filter").value = "";
        limit = step;
        draw();
      }
      focusRow();
    }
  });
  byId("all").addEventListener("change", (event) => tick(shown(), event.target.checked));
  byId("chosen-none").addEventListener("click", () => tick(inbox.faxes, false));
}

export function show(newInbox) {
  if (inbox !== newInbox) {
    inbox = newInbox;
    byId("filter").value = "";
    limit = step;
    byId("rows-scroll").scrollTop = 0;
    clear();
  }
  draw();
}

// Drops all rows, for another inbox or language.
export function clear() {
  rows.forEach((row) => inSight.unobserve(row));
  rows = new Map();
  lastTicked = null;
  byId("rows").replaceChildren();
}

// Marks the fax that is looked at, and brings its row into sight.
export function showOpen(tag) {
  linkOf(open)?.removeAttribute("aria-current");
  open = tag;
  linkOf(open)?.setAttribute("aria-current", "true");
  rows.get(open)?.scrollIntoView({ block: "nearest" });
}

function linkOf(tag) {
  return rows.get(tag)?.querySelector("a");
}

// Thumbnails

function loadThumbnail(row) {
  const image = row.querySelector("img");
  if (image && !image.getAttribute("src") && image.dataset.src)
    image.src = image.dataset.src;
}

const inSight = new IntersectionObserver((seen) => {
  for (const { target: row, isIntersecting } of seen) {
    row.inSight = isIntersecting;
    const image = row.querySelector("img");
    if (isIntersecting)
      setTimeout(() => row.inSight && loadThumbnail(row), settled);
    else if (image && !image.complete)
      image.removeAttribute("src"); // the request is given up
  }
}, { rootMargin: "150px" });

function thumbnail(fax) {
  const image = el("img", { alt: "", decoding: "async",
    "data-src": address("thumbnail.png", { inbox: inbox.handle, id: fax.id, tag: fax.tag }) });
  image.addEventListener("error", () => image.hidden = true);
  return el("span", { class: "thumbnail" }, fax.problem ? icon("damage") : image);
}

// Rows

function marks(fax) {
  return [
    inbox.fresh.has(fax.tag) ? el("span", { class: "mark new", text: t("list.isnew") }) : null,
    fax.problem ? el("span", { class: "mark bad" }, icon("damage"), t("fax.problem")) : null,
    deliveredMark(inbox, fax),
  ].filter(Boolean);
}

function facts(fax) {
  return [fax.pages === null ? null : t("fax.pages", { n: fax.pages }), size(fax.size)].filter(Boolean).join(" · ");
}

function makeRow(fax) {
  const sender = fax.sender || t("fax.unknown");
  const box = el("input", { type: "checkbox", "aria-label": t("list.choose", { sender }),
    onclick: (event) => tickRow(fax.tag, event) });
  box.checked = inbox.chosen.has(fax.tag);
  const when = new Date(fax.mtime * 1000).toISOString();
  const link = el("a", { href: faxAddress(inbox.handle, fax) },
    el("span", { class: "first" },
      outside(sender, { class: "sender" }),
      el("time", { datetime: when, "data-seconds": fax.mtime, text: shortTime(fax.mtime) })),
    el("span", { class: "soft" },
      fax.subaddress ? `${t("fax.to", { subaddress: fax.subaddress })} · ` : null,
      facts(fax)),
    outside(fax.name, { class: "name soft" }),
    el("span", { class: "marks" }, ...marks(fax)));
  const row = el("li", {}, box, thumbnail(fax), link);
  row.fax = fax;
  inSight.observe(row);
  return row;
}

// What a fax shows may change without the fax: its marks, and its id after a restart of faxtrayd.
export function redraw(tags) {
  for (const tag of tags) {
    const row = rows.get(tag);
    row?.querySelector(".marks").replaceChildren(...marks(row.fax));
  }
}

function rowOf(fax) {
  let row = rows.get(fax.tag);
  if (row && row.fax.id === fax.id)
    return row;
  if (row)
    inSight.unobserve(row);
  row = makeRow(fax);
  rows.set(fax.tag, row);
  if (fax.tag === open)
    requestAnimationFrame(() => showOpen(open));
  return row;
}

export function filtered() {
  return byId("filter").value.trim() !== "";
}

// The faxes that pass the filter: each of its words is in sender, name or subaddress.
export function shown() {
  const words = byId("filter").value.toLowerCase().split(/\s+/).filter(Boolean);
  const passes = (fax) => {
    const text = `${fax.sender}\n${fax.name}\n${fax.subaddress}`.toLowerCase();
    return words.every((word) => text.includes(word));
  };
  return words.length ? inbox.faxes.filter(passes) : inbox.faxes;
}

// Brings the rows in step with the inbox; rows that stay are not touched, so focus and place stay too.
export function draw() {
  if (!inbox)
    return;
  const list = byId("rows");
  const matching = shown();
  const wanted = matching.slice(0, limit).map(rowOf);
  const stays = new Set(wanted);
  for (const row of [...list.children])
    if (!stays.has(row))
      row.remove();
  let at = list.firstElementChild;
  for (const row of wanted) {
    if (row === at)
      at = at.nextElementSibling;
    else
      list.insertBefore(row, at);
  }
  const known = new Set(inbox.faxes.map((fax) => fax.tag));
  for (const [tag, row] of rows)
    if (!known.has(tag)) {
      inSight.unobserve(row);
      rows.delete(tag);
    }
  drawCounts(matching.length);
  events.dispatchEvent(new Event("drawn"));
}

function drawCounts(matches) {
  const values = { n: filtered() ? matches : inbox.count, all: inbox.count, read: inbox.faxes.length };
  byId("count").textContent = inbox.check === null ? ""
    : t(!filtered() ? "list.count" : inbox.more ? "list.searching" : "list.matches", values);
  byId("rows-end").textContent = inbox.check === null || inbox.more || matches > limit ? t("list.loading")
    : matches ? "" : t(filtered() ? "list.nomatch" : "list.empty");
  drawChosen();
}

// Reading on

async function readOn() {
  let pause = 200;
  try {
    if (!inbox || limit >= shown().length && !(inbox.more && await inbox.loadMore()))
      return;
    limit += step;
    draw();
  } catch (error) {
    endOfReading(error);
    pause = 4000;
  }
  // The end may still be in sight, which is not announced again.
  const scroll = byId("rows-scroll");
  if (scroll.scrollHeight - scroll.scrollTop - scroll.clientHeight < 600)
    setTimeout(readOn, pause);
}

// The filter is about all faxes: the rest is read as long as it is used.
async function search() {
  if (searching || !inbox)
    return;
  searching = true;
  const place = inbox;
  try {
    while (place === inbox && filtered() && inbox.more && await inbox.loadMore())
      draw();
  } catch (error) {
    endOfReading(error);
  }
  searching = false;
}

// If the fax to continue from has gone, the next question for news brings the list anew; and the banner tells when there
// is no answer.
function endOfReading(error) {
  if (error.word === "changed")
    inbox.stale = true;
  else if (error.word !== "away" && error.word !== "unreachable")
    sayFailed(error);
}

// Ticks

function tick(faxes, on) {
  for (const { tag } of faxes) {
    inbox.chosen[on ? "add" : "delete"](tag);
    const box = rows.get(tag)?.querySelector("input");
    if (box)
      box.checked = on;
  }
  drawChosen();
  events.dispatchEvent(new Event("chosen"));
}

// With the shift key, all from the last one ticked to this one.
function tickRow(tag, event) {
  const faxes = shown();
  const [from, to] = [lastTicked, tag].map((wanted) => faxes.findIndex((fax) => fax.tag === wanted));
  const range = event.shiftKey && from >= 0 ? faxes.slice(Math.min(from, to), Math.max(from, to) + 1) : [faxes[to]];
  lastTicked = tag;
  tick(range, event.target.checked);
}

function drawChosen() {
  const n = inbox.chosen.size;
  byId("chosen").hidden = n === 0;
  byId("chosen-count").textContent = n ? t("list.chosen", { n }) : "";
  byId("chosen-deliver").hidden = inbox.handle === null;
  const all = byId("all");
  all.checked = n > 0 && shown().every((fax) => inbox.chosen.has(fax.tag));
  all.indeterminate = n > 0 && !all.checked;
}

// Keys

// The row that has the focus, else the open one.
export function currentTag() {
  const row = document.activeElement?.closest("#rows li");
  return row ? row.fax.tag : open;
}

export function focusRow(tag = currentTag()) {
  const row = rows.get(tag)?.isConnected ? rows.get(tag) : byId("rows").firstElementChild;
  row?.querySelector("a").focus();
}

// The fax that many rows below the current one (above, if negative), or undefined.
export function neighbour(steps, tag = currentTag()) {
  const faxes = shown();
  const at = faxes.findIndex((fax) => fax.tag === tag);
  if (at + steps >= Math.min(limit, faxes.length) - 1)
    readOn();
  return at < 0 ? faxes[0] : faxes[at + steps];
}

export function toggleTick() {
  rows.get(currentTag())?.querySelector("input").click();
}
