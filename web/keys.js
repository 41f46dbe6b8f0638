// keys: the keyboard's shortcuts. They rest while a field or a question has the focus.
import { byId, typing } from "./dom.js";
import * as fax from "./fax.js";
import * as list from "./list.js";

// `act` has what only the page as a whole can do: open(fax), close(), deliver(), remove().
export function start(act) {
  const shortcuts = {
    j: () => step(1), k: () => step(-1), ArrowDown: () => arrow(1), ArrowUp: () => arrow(-1),
    d: act.deliver, x: list.toggleTick, Delete: act.remove, Escape: act.close,
    "/": () => byId("filter").focus(), "?": () => byId("keys").showModal(),
    "+": () => fax.zoom(1), "-": () => fax.zoom(-1), 0: fax.fit, r: fax.turn,
  };
  function step(by) {
    const next = list.neighbour(by);
    if (next && byId("desk").dataset.shows !== "list")
      act.open(next);
    if (next)
      list.focusRow(next.tag);
    return Boolean(next);
  }
  // Arrows scroll the pages; in the list they go through it.
  function arrow(by) {
    return document.activeElement.closest("#rows") ? step(by) : false;
  }
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey || byId("desk").hidden || document.querySelector("dialog[open]"))
      return;
    if (typing()) {
      if (event.key === "Escape" && document.activeElement.id === "recipient")
        list.focusRow();
      return;
    }
    const action = Object.hasOwn(shortcuts, event.key) && shortcuts[event.key];
    if (action && action() !== false)
      event.preventDefault();
  });
}
