// app: the page as a whole: log in, tabs, which fax is shown, and the questions to the server that keep it up to date.
import * as api from "./api.js";
import * as deliveries from "./deliveries.js";
import * as deliver from "./deliver.js";
import { byId, el, icon, outside } from "./dom.js";
import * as fax from "./fax.js";
import { ago, count, exactTime } from "./format.js";
import { Inbox } from "./inbox.js";
import * as keys from "./keys.js";
import * as list from "./list.js";
import * as login from "./login.js";
import { connection, say, sayFailed } from "./notices.js";
import * as panel from "./panel.js";
import { plain } from "./plain.js";
import { removeFaxes } from "./remove.js";
import * as route from "./route.js";
import { chooseLanguage, language, languages, startLanguage, t, translate } from "./texts.js";

const pause = 4000, hiddenPause = 20000; // milliseconds between two questions for new faxes, the latter in a tab in the background
const countsEvery = 30000;               // the same for the counts of other inboxes

let session = null;       // the server's account of it, or null
let inboxes = new Map();  // by handle, null for the user's own
let inbox = null;         // the one shown
let looked = null;        // { fax, about } looked at, or null; about null until it has come
let lastCounts = 0;
let timer = 0;

// Session

// Begins with what the server knows of this browser: after a reload, or another tab's log-in, there is no form.
async function enter() {
  session = await api.get("session");
  api.remember(session.user, session.token);
  lastCounts = Date.now();
  inboxes = new Map([...session.inboxes.map((one) => one.inbox), null].map((handle) => [handle, new Inbox(handle)]));
  takeCounts();
  deliveries.resume(session.user);
  byId("who").replaceChildren(outside(session.user));
  byId("who").title = t("page.user", { user: session.user });
  byId("login").hidden = true;
  byId("desk").hidden = false;
  follow();
  await poll();
  if (document.activeElement === document.body)
    list.focusRow();
}

// Nothing of a user's stays in the page.
function leave(why) {
  clearTimeout(timer);
  if (!session)
    return;
  session = inbox = looked = null;
  inboxes = new Map();
  api.remember(null, null);
  list.show(null);
  fax.clear();
  panel.clear();
  deliver.forget();
  document.querySelectorAll("dialog[open]").forEach((dialog) => dialog.close());
  for (const id of ["notices", "account", "inboxes", "who", "count", "position", "ask-body"])
    byId(id).replaceChildren();
  byId("filter").value = "";
  byId("desk").hidden = true;
  document.title = t("login.title");
  login.show(why);
}

async function logOut() {
  try {
    await api.post("logout", {});
  } catch (error) {
    if (error.word !== "session") {
      sayFailed(error); // still logged in
      return;
    }
  }
  deliveries.forget();
  leave("login.out");
}

// Staying in step

async function poll() {
  clearTimeout(timer);
  if (!session)
    return;
  try {
    await refresh();
    if (session.inboxes.length)
      await deliver.haveRecipients();
    if (Date.now() - lastCounts > countsEvery)
      await refreshInboxes();
    connection(null);
  } catch (error) {
    if (error.word === "session")
      return;
    connection(error);
  }
  clearTimeout(timer); // another one may have been set meanwhile
  timer = setTimeout(poll, document.hidden ? hiddenPause : pause);
}

async function refresh() {
  const place = inbox;
  const added = await place.refresh();
  if (place !== inbox || !added)
    return;
  if (added.length)
    say(t("list.new", { n: added.length }));
  drawList();
  drawInboxes();
  // After a restart of faxtrayd the fax has another id.
  const now = looked && inbox.find(looked.fax.tag);
  if (now && now.id !== looked.fax.id)
    route.replace({ ...route.current(), id: now.id });
}

// An edit of the user list may give a forwarder another inbox. One that was taken away stays until the next log-in; the
// server refuses to show it.
async function refreshInboxes() {
  lastCounts = Date.now();
  const now = (await api.get("session")).inboxes;
  for (const one of now.filter(({ inbox: handle }) => !inboxes.has(handle))) {
    session.inboxes.push(one);
    inboxes.set(one.inbox, new Inbox(one.inbox));
  }
  takeCounts(now);
  drawInboxes();
}

// The count of the inbox that is shown comes with its list.
function takeCounts(counts = session.inboxes) {
  for (const one of counts)
    if (one.inbox !== inbox?.handle)
      inboxes.get(one.inbox).count = one.count;
}

// The list is to be read anew at once: something was found to have changed.
function reread() {
  inbox.stale = true;
  return poll();
}

// What is shown

// Shows what the address says.
function follow() {
  if (!session)
    return;
  const wanted = route.current();
  const handle = inboxes.has(wanted.inbox) ? wanted.inbox : inboxes.keys().next().value;
  if (inbox?.handle !== handle) {
    inbox = inboxes.get(handle);
    looked = null;
    list.show(inbox);
    poll();
  }
  byId("desk").dataset.shows = wanted.panel ? "panel" : wanted.tag ? "fax" : "list";
  drawInboxes();
  if (!wanted.tag)
    closeFax();
  else if (looked?.fax.tag !== wanted.tag || String(looked.fax.id) !== wanted.id)
    openFax(inbox.find(wanted.tag) ?? { id: wanted.id, tag: wanted.tag });
}

function closeFax() {
  const tag = looked?.fax.tag;
  looked = null;
  fax.clear();
  fax.message(t("fax.pick"), t("fax.pickhint"));
  byId("tools").hidden = true;
  list.showOpen(null);
  if (tag && !document.activeElement?.closest("#list"))
    list.focusRow(tag);
  drawPanel();
}

async function openFax(entry) {
  const place = inbox;
  looked = { fax: entry, about: null };
  place.fresh.delete(entry.tag);
  list.showOpen(entry.tag);
  list.redraw([entry.tag]);
  byId("tools").hidden = false;
  drawPanel();
  try {
    const about = await fax.show(place.handle, entry);
    looked = { fax: { ...about, ...entry, ...inbox.find(entry.tag) }, about };
    drawPanel();
  } catch (error) {
    if (error.name === "AbortError" || error.word === "session")
      return;
    if (error.word === "changed" || error.word === "not_found") {
      fax.message(t("fax.changed"));
      reread();
    } else {
      fax.message(t("page.failed", { reason: error.message || t("page.noanswer") }));
    }
  }
}

// The faxes that "deliver" and "remove" are about: the chosen ones, else the one looked at.
function targets() {
  const chosen = inbox.chosenFaxes();
  return chosen.length ? chosen : looked?.fax.name === undefined ? [] : [inbox.find(looked.fax.tag) ?? looked.fax];
}

function drawPanel() {
  const faxes = targets(), chosen = inbox.chosen.size > 0;
  if (chosen)
    panel.showChosen(inbox, faxes, remove);
  else if (faxes.length)
    panel.showFax(inbox, faxes[0], looked.about, remove);
  else
    panel.clear();
  deliver.aim(inbox, inbox.handle === null ? [] : faxes);
  byId("deliveries").hidden = session.inboxes.length === 0;
  byId("narrow-tools").hidden = !faxes.length;
  byId("open-panel").textContent = t(inbox.handle === null ? "fax.details" : "deliver.open");
  drawPosition();
}

// Where the fax is among those that the filter shows.
function drawPosition() {
  if (!inbox)
    return;
  const shown = list.shown();
  const at = looked ? shown.findIndex((one) => one.tag === looked.fax.tag) : -1;
  byId("previous").disabled = at <= 0;
  byId("position").textContent = at < 0 ? "" : t("fax.position", { n: at + 1, all: list.filtered() ? shown.length : inbox.count });
  byId("next").disabled = at < 0 || at === shown.length - 1 && !inbox.more;
}

function drawList() {
  list.draw();
  drawPanel();
}

function drawInboxes() {
  const names = new Map([...session.inboxes.map((one) => [one.inbox, plain(one.name)]), [null, t("page.mine")]]);
  const tabs = byId("inboxes");
  const focus = [...tabs.children].indexOf(document.activeElement);
  tabs.replaceChildren(...[...names].map(([handle, name]) => el("a", {
    href: route.inboxAddress(handle), "aria-current": handle === inbox.handle ? "page" : null }, outside(name),
    inboxes.get(handle).count === null ? null : el("span", { class: "count", text: count(inboxes.get(handle).count) }))));
  tabs.children[focus]?.focus();
  document.title = `(${count(inbox.count ?? 0)}) ${names.get(inbox.handle)} – ${t("page.title")}`;
}

// Deeds

function open(entry) {
  route.go({ inbox: inbox.handle, id: entry.id, tag: entry.tag });
}

function close() {
  const { panel: beside, ...rest } = route.current();
  route.go(beside ? rest : { inbox: inbox.handle });
}

async function remove() {
  const faxes = targets(), place = inbox;
  if (!faxes.length)
    return;
  const gone = looked && faxes.some((one) => one.tag === looked.fax.tag);
  const next = gone && (list.neighbour(1, looked.fax.tag) ?? list.neighbour(-1, looked.fax.tag));
  if (!await removeFaxes(place, faxes) || place !== inbox)
    return;
  await reread();
  if (gone && inbox === place && !place.find(faxes[0].tag))
    route.replace({ inbox: place.handle, ...(next && place.find(next.tag)) });
  list.focusRow();
}

function startDelivery() {
  if (inbox.handle === null) {
    byId("actions").querySelector("a[data-as=pdf]")?.click();
    return;
  }
  if (!looked && !inbox.chosen.size && list.currentTag())
    open(inbox.find(list.currentTag()));
  route.go({ ...route.current(), panel: matchMedia("(max-width: 62rem)").matches });
  setTimeout(() => byId("recipient").focus());
}

function deliveryEnded({ detail: record }) {
  if (!session)
    return;
  const good = record.faxes.filter((one) => one.state === "delivered").length;
  if (good)
    say(t("deliver.told", { name: record.label, n: good }));
  if (good < record.faxes.length)
    say(t("deliver.toldfailed", { name: record.label }), true);
  if (record.faxes.some((one) => one.state === "changed"))
    reread();
}

function drawDeliveries() {
  if (!session)
    return;
  deliver.drawAccount();
  if (inbox) {
    list.redraw(deliveries.all().flatMap((record) => record.faxes.map((one) => one.tag)));
    drawPanel();
  }
}

// Start

function drawAll() {
  translate();
  if (!session)
    login.draw();
  else if (inbox) {
    list.clear();
    drawInboxes();
    drawList();
    drawDeliveries();
    if (looked)
      fax.redraw();
    else
      closeFax();
  }
}

function startButtons() {
  const pictures = { close: "back", previous: "previous", next: "next", smaller: "less", larger: "more", fit: "fit", turn: "turn",
    print: "print", help: "help", "close-panel": "close" };
  for (const [id, name] of Object.entries(pictures))
    byId(id).append(icon(name));
  const clicks = { close, "close-panel": close, logout: logOut, help: () => byId("keys").showModal(),
    "chosen-deliver": startDelivery, "chosen-remove": remove, "open-panel": startDelivery,
    previous: () => open(list.neighbour(-1, looked.fax.tag)), next: () => open(list.neighbour(1, looked.fax.tag)) };
  for (const [id, deed] of Object.entries(clicks))
    byId(id).addEventListener("click", deed);
  byId("skip").addEventListener("click", (event) => {
    event.preventDefault();
    list.focusRow();
  });
  byId("desk").addEventListener("pointerover", (event) => {
    const time = event.target.closest("time"), seconds = time?.dataset.seconds;
    if (seconds)
      time.title = `${exactTime(seconds)} · ${ago(seconds)}`;
  });
  startLanguages();
}

function startLanguages() {
  for (const choice of document.querySelectorAll("select.language")) {
    choice.append(...Object.entries(languages).map(([value, text]) => el("option", { value, text, lang: value })));
    choice.addEventListener("change", () => {
      chooseLanguage(choice.value);
      document.querySelectorAll("select.language").forEach((other) => other.value = choice.value);
      drawAll();
    });
    choice.value = language();
  }
}

async function start() {
  startLanguage();
  translate();
  startButtons();
  list.start();
  fax.start();
  deliver.start();
  login.start(enter);
  keys.start({ open, close, deliver: startDelivery, remove });
  list.events.addEventListener("chosen", drawPanel);
  list.events.addEventListener("drawn", drawPosition);
  deliveries.events.addEventListener("change", drawDeliveries);
  deliveries.events.addEventListener("done", deliveryEnded);
  api.events.addEventListener("ended", () => leave("login.ended"));
  addEventListener("hashchange", follow);
  document.addEventListener("visibilitychange", () => !document.hidden && poll());
  addEventListener("pageshow", (event) => event.persisted && poll());
  await enter().catch((error) => login.show(error.word === "session" ? "" : "login.unreachable"));
}

start();
