// deliveries: the deliveries of this session, from the request to the server's account of how each ended.
//
// They are kept as long as this tab of the browser lives, so that a reload of the page loses none. A log-out forgets them.
import { get, post } from "./api.js";
import { reason } from "./notices.js";

// A record: { inbox, label, time, job, done, faxes: [{ id, tag, sender, mtime, state, lines }] }, oldest first. `state` is
// the server's, or "lost" if it no longer knows of the job.
let records = [];
export const events = new EventTarget(); // "change" after each change, "done" with the record in detail when one has ended

const place = "deliveries";
const firstPause = 250, longestPause = 2000; // milliseconds between questions about a job

function keep(user) {
  if (user)
    keep.user = user;
  sessionStorage.setItem(place, JSON.stringify({ user: keep.user, records }));
  events.dispatchEvent(new Event("change"));
}

// The session of `user` begins, or goes on after a reload.
export function resume(user) {
  const kept = JSON.parse(sessionStorage.getItem(place) ?? "null");
  records = kept?.user === user ? kept.records : [];
  keep(user);
  records.filter((record) => !record.done).forEach(follow);
}

export function forget() {
  records = [];
  sessionStorage.removeItem(place);
  events.dispatchEvent(new Event("change"));
}

export function all() {
  return records;
}

function ofFax(inbox, tag) {
  return records.filter((record) => record.inbox === inbox.handle)
    .flatMap((record) => record.faxes.filter((fax) => fax.tag === tag).map((fax) => ({ ...fax, record })));
}

// To whom a fax was delivered: labels, each once.
export function marksOf(inbox, tag) {
  return [...new Set(ofFax(inbox, tag).filter((fax) => fax.state === "delivered").map((fax) => fax.record.label))];
}

export function isRunning(inbox, tag) {
  return ofFax(inbox, tag).some((fax) => !fax.record.done);
}

// Begins a delivery to `recipient` (name and label); a promise that the server has taken the request.
export async function deliver(inbox, faxes, recipient) {
  const ids = faxes.map(({ id, tag }) => ({ id, tag }));
  const { job } = await post("deliver", { inbox: inbox.handle, faxes: ids, recipient: recipient.name });
  const record = {
    inbox: inbox.handle, label: recipient.label || recipient.name, time: Math.round(Date.now() / 1000), job, done: false,
    faxes: faxes.map(({ id, tag, sender, mtime }) => ({ id, tag, sender, mtime, state: "waiting", lines: [] })),
  };
  records.push(record);
  keep();
  follow(record);
}

function take(record, answer) {
  const before = JSON.stringify(record);
  record.done = answer.done;
  for (const fax of record.faxes) {
    const news = answer.faxes.find((other) => other.tag === fax.tag);
    if (news)
      Object.assign(fax, { state: news.state, lines: news.lines });
  }
  if (JSON.stringify(record) !== before)
    keep();
}

// The server went away with the job: nobody can tell how it ended, and the page must not claim to.
function lose(record, error) {
  record.done = true;
  for (const fax of record.faxes.filter(({ state }) => state === "waiting" || state === "running"))
    Object.assign(fax, { state: "lost", lines: [reason(error)] });
  keep();
}

// Asks until the job has ended. While the server does not answer, or the session has ended, it asks on.
async function follow(record) {
  for (let pause = firstPause; !record.done && records.includes(record); pause = Math.min(pause * 1.5, longestPause)) {
    await new Promise((resolve) => setTimeout(resolve, pause));
    try {
      take(record, await get("job", { id: record.job }));
    } catch (error) {
      if (error.word === "not_found")
        lose(record, error);
      else if (error.word === "session")
        return; // resumed after the log-in
    }
  }
  if (records.includes(record))
    events.dispatchEvent(new CustomEvent("done", { detail: record }));
}
