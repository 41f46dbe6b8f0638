// deliver: the field for a recipient with the names that match what is typed, and the account of all deliveries.
//
// The field is a combobox as WAI-ARIA describes it: the focus stays in it, the arrow keys go through the names. A click on
// a name only chooses it, since a fax that has gone to the wrong person does not come back.
import { get } from "./api.js";
import { all, deliver, marksOf } from "./deliveries.js";
import { byId, el, icon, outside } from "./dom.js";
import { faxName, shortTime } from "./format.js";
import { sayFailed, tooMany } from "./notices.js";
import { faxAddress } from "./route.js";
import { t } from "./texts.js";

const mostShown = 200;     // names at a time; typing brings the others
const freshFor = 60000;    // milliseconds until the names are asked for again, when the field is used

let recipients = []; // { name, label, group }
let loaded = 0;      // when, in milliseconds since 1970; 0: not yet
let matching = [];   // those that are shown
let active = -1;     // which of these Enter chooses
let target = null;   // { inbox, faxes } that are to be delivered

export function start() {
  const field = byId("recipient");
  field.addEventListener("input", () => drawNames());
  field.addEventListener("keydown", key);
  field.addEventListener("focus", () => Date.now() - loaded > freshFor && loadRecipients().catch(() => {})); // the old ones do
  byId("recipients").addEventListener("click", (event) => {
    const option = event.target.closest("[role=option]");
    if (option)
      choose(Number(option.dataset.at));
  });
  byId("deliver").addEventListener("submit", (event) => {
    event.preventDefault();
    send();
  });
}

const labelOf = (recipient) => recipient.label || recipient.name;

async function loadRecipients() {
  const list = await get("recipients");
  const sorted = list.recipients.sort((a, b) => labelOf(a).localeCompare(labelOf(b)));
  loaded = Date.now();
  if (JSON.stringify(sorted) === JSON.stringify(recipients))
    return;
  recipients = sorted;
  drawNames();
}

// Sees to it that there are names to choose from; refused as the request is.
export async function haveRecipients() {
  if (!loaded)
    await loadRecipients();
}

export function forget() {
  recipients = [];
  loaded = 0;
  target = null;
  drawNames();
}

// The faxes that a delivery would be about; none hide the field. Typing is not disturbed by a list that changes meanwhile.
export function aim(inbox, faxes) {
  const same = target && target.inbox === inbox && target.faxes.map((fax) => fax.tag).join() === faxes.map((fax) => fax.tag).join();
  target = { inbox, faxes };
  byId("deliver").hidden = !faxes.length;
  if (!same) {
    byId("recipient").value = "";
    drawNames();
  } else {
    drawButton();
  }
}

// Names

// 0 for a recipient whose name, label, or a word of these begins with what was typed, 1 if it is somewhere within, 2 for
// no match.
function rank({ name, label }, typed) {
  const text = `${name} ${label}`.toLowerCase();
  if (text.startsWith(typed) || text.split(/[\s,.()-]+/).some((word) => word.startsWith(typed)))
    return 0;
  return text.includes(typed) ? 1 : 2;
}

function drawNames() {
  const typed = byId("recipient").value.trim().toLowerCase();
  matching = [0, 1].flatMap((wanted) => recipients.filter((recipient) => rank(recipient, typed) === wanted)).slice(0, mostShown);
  active = typed && matching.length ? 0 : -1;
  byId("recipients").replaceChildren(...matching.map(option));
  if (!matching.length)
    byId("recipients").append(el("li", { class: "soft", role: "presentation", text: t("deliver.nobody") }));
  drawActive();
}

function option(recipient, at) {
  return el("li", { role: "option", id: `recipient-${at}`, "data-at": at, "aria-selected": "false" },
    icon(recipient.group ? "group" : "person"), outside(labelOf(recipient)),
    el("span", { class: "soft" }, recipient.label && recipient.label !== recipient.name ? outside(recipient.name) : "",
      recipient.group ? ` (${t("deliver.group")})` : ""));
}

function drawActive() {
  byId("recipients").querySelectorAll("[role=option]").forEach((item, at) => {
    item.setAttribute("aria-selected", String(at === active));
    if (at === active)
      item.scrollIntoView({ block: "nearest" });
  });
  if (active >= 0)
    byId("recipient").setAttribute("aria-activedescendant", `recipient-${active}`);
  else
    byId("recipient").removeAttribute("aria-activedescendant");
  drawButton();
}

function drawButton() {
  const button = byId("deliver-button"), recipient = matching[active];
  button.disabled = !recipient;
  if (!recipient) {
    button.textContent = t("deliver.choose");
    return;
  }
  const label = labelOf(recipient);
  const again = target?.faxes.some((fax) => marksOf(target.inbox, fax.tag).includes(label));
  button.replaceChildren(icon("send"), t(again ? "deliver.again" : "deliver.button", { name: label }));
}

function key(event) {
  const steps = { ArrowDown: 1, ArrowUp: -1 }[event.key];
  if (steps && matching.length) {
    event.preventDefault();
    active = active < 0 ? (steps > 0 ? 0 : matching.length - 1) : (active + steps + matching.length) % matching.length;
    drawActive();
  }
}

function choose(at) {
  active = at;
  drawActive();
  byId("deliver-button").focus();
}

async function send() {
  const recipient = matching[active];
  if (!recipient || !target?.faxes.length || tooMany(target.faxes))
    return;
  const { inbox, faxes } = target;
  byId("recipient").value = "";
  drawNames();
  byId("recipient").focus();
  try {
    await deliver(inbox, faxes, recipient);
  } catch (error) {
    sayFailed(error);
  }
}

// The account, the newest delivery first

export function drawAccount() {
  byId("account").replaceChildren(...all().toReversed().map(entry));
  byId("no-account").hidden = all().length > 0;
  drawButton();
}

const pictures = { waiting: "wait", running: "wait", delivered: "done", failed: "damage", changed: "damage", lost: "damage" };

function entry(record) {
  return el("li", {},
    el("p", {}, el("strong", {}, outside(record.label)), el("span", { class: "soft", text: ` ${shortTime(record.time)}` })),
    ...record.faxes.map((fax) => faxLine(record, fax)));
}

function faxLine(record, fax) {
  const kind = fax.state === "delivered" ? "good" : fax.state === "waiting" || fax.state === "running" ? "new" : "bad";
  return el("div", { class: "outcome" },
    el("a", { href: faxAddress(record.inbox, fax) }, faxName(fax)),
    el("span", { class: `mark ${kind}`, "data-state": fax.state }, icon(pictures[fax.state]), t(`deliver.${fax.state}`)),
    fax.lines.length ? el("ul", { class: "lines" }, ...fax.lines.map((line) => el("li", {}, outside(line)))) : null);
}
