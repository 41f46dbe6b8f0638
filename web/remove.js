// remove: takes faxes off the server, after one question. The server compares each with what was shown here; one that has
// changed meanwhile stays.
import { post } from "./api.js";
import { isRunning, marksOf } from "./deliveries.js";
import { el, outside } from "./dom.js";
import { faxName } from "./format.js";
import { ask, say, sayFailed, tooMany } from "./notices.js";
import { t } from "./texts.js";

const named = 5; // faxes that the question names; of more it gives the number

function question(inbox, faxes) {
  const names = faxes.slice(0, named).map((fax) =>
    el("li", {}, faxName(fax), el("span", { class: "soft" }, " ", outside(fax.name))));
  if (faxes.length > named)
    names.push(el("li", { text: t("remove.more", { n: faxes.length - named }) }));
  const undelivered = faxes.filter((fax) => !marksOf(inbox, fax.tag).length).length;
  const warning = inbox.handle !== null && undelivered
    ? el("p", { class: "warning", text: t(faxes.length === 1 ? "remove.undeliveredone" : "remove.undelivered", { n: undelivered }) }) : null;
  return [el("ul", {}, ...names), warning, el("p", { text: t("remove.forgood", { n: faxes.length }) })].filter(Boolean);
}

function tell(results) {
  const having = (state) => results.filter((result) => result.state === state);
  if (having("removed").length)
    say(t("remove.done", { n: having("removed").length }));
  if (having("changed").length)
    say(t("remove.changed", { n: having("changed").length }), true);
  for (const message of new Set(having("failed").map((result) => result.message)))
    say(t("remove.failed", { reason: message }), true);
}

// A promise of whether the list is to be read anew.
export async function removeFaxes(inbox, faxes) {
  if (tooMany(faxes))
    return false;
  if (faxes.some((fax) => isRunning(inbox, fax.tag))) {
    say(t("remove.running"), true);
    return false;
  }
  const n = faxes.length;
  if (!await ask({ title: t("remove.title", { n }), body: question(inbox, faxes), yes: t("remove.many", { n }), no: t("remove.keep") }))
    return false;
  try {
    const faxIds = faxes.map(({ id, tag }) => ({ id, tag }));
    tell((await post("remove", { inbox: inbox.handle, faxes: faxIds })).faxes);
  } catch (error) {
    sayFailed(error);
  }
  return true;
}
