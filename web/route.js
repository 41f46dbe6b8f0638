// route: what is shown, as the part of the address behind "#", so that the back button and reloading work.
//
// { inbox, id, tag, panel }: inbox null for the user's own, undefined if the address names none; id and tag of the fax
// looked at, or null; panel: on a narrow screen, the part beside the fax is shown instead of it.

function write({ inbox, id, tag, panel }) {
  const parts = new URLSearchParams();
  if (inbox === null)
    parts.set("mine", "");
  else if (inbox !== undefined)
    parts.set("inbox", inbox);
  if (tag) {
    parts.set("fax", id);
    parts.set("tag", tag);
  }
  if (panel)
    parts.set("panel", "");
  return "#" + parts;
}

export function current() {
  const parts = new URLSearchParams(location.hash.slice(1));
  return {
    inbox: parts.has("mine") ? null : parts.get("inbox") ?? undefined,
    id: parts.get("fax"), tag: parts.get("tag"), panel: parts.has("panel"),
  };
}

export function inboxAddress(inbox) {
  return write({ inbox });
}

export function faxAddress(inbox, { id, tag }) {
  return write({ inbox, id, tag });
}

export function go(route) {
  location.hash = write(route);
}

// The same without a further step for the back button.
export function replace(route) {
  history.replaceState(null, "", write(route));
  dispatchEvent(new HashChangeEvent("hashchange"));
}
