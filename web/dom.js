// dom: elements made from code.
import { paths } from "./icons.js";
import { plain } from "./plain.js";

// Text from outside as an element, whose direction does not affect its neighbours. In sentences, t() sees to that.
export function outside(text, attributes = {}) {
  return el("bdi", { ...attributes, text: plain(text) });
}

// el("a", { href, class, text, onclick, "aria-label", ... }, child...): null children and attributes that are null or
// false are left out; true gives an empty attribute.
export function el(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name === "text")
      element.textContent = value;
    else if (name.startsWith("on"))
      element.addEventListener(name.slice(2), value);
    else if (value !== null && value !== undefined && value !== false)
      element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

export function icon(name) {
  const space = "http://www.w3.org/2000/svg";
  const picture = document.createElementNS(space, "svg");
  picture.setAttribute("viewBox", "0 0 24 24");
  picture.setAttribute("class", "icon");
  picture.setAttribute("aria-hidden", "true");
  const path = document.createElementNS(space, "path");
  path.setAttribute("d", paths[name]);
  picture.append(path);
  return picture;
}

export function byId(id) {
  return document.getElementById(id);
}

// Whether keys typed now belong to a field.
export function typing() {
  return document.activeElement?.matches("input:not([type=checkbox]), textarea, select") ?? false;
}
