// fax: the pages of one fax below each other, fitted to the width or at a scale of their own.
import { address, get } from "./api.js";
import { byId, el } from "./dom.js";
import { t } from "./texts.js";

const scales = [0.25, 0.33, 0.5, 0.67, 0.8, 1, 1.25, 1.5, 2, 3]; // screen pixels to one of the page
const margin = 2 * 16; // pixels beside a page that fits

let shown = null;   // { inbox, fax, pages, whole } or null; the latter two are the server's
let asked = null;   // AbortController of the request for it
let scale = null;   // null: as wide as there is room
let turned = 0;     // quarters, clockwise

export function start() {
  new ResizeObserver(layOut).observe(byId("pages"));
  byId("larger").addEventListener("click", () => zoom(1));
  byId("smaller").addEventListener("click", () => zoom(-1));
  byId("fit").addEventListener("click", fit);
  byId("scale").addEventListener("click", () => setScale(1));
  byId("turn").addEventListener("click", turn);
  byId("print").addEventListener("click", print);
}

// Shows a fax; a promise of the server's account of it. Refused as the request is; of two calls, the later one counts and
// the earlier one is refused with an AbortError.
export async function show(inbox, fax) {
  asked?.abort();
  asked = new AbortController();
  const { signal } = asked;
  shown = { inbox, fax, pages: [] };
  turned = 0;
  message(t("list.loading"));
  const about = await get("fax", { inbox, id: fax.id, tag: fax.tag }, signal);
  signal.throwIfAborted();
  shown.pages = about.pages;
  shown.whole = about.whole;
  drawPages();
  return about;
}

export function clear() {
  asked?.abort();
  shown = null;
  byId("pages").replaceChildren();
}

// The same pages in another language.
export function redraw() {
  if (shown?.pages.length)
    drawPages();
}

// A text in the place of the pages.
export function message(...texts) {
  byId("pages").replaceChildren(el("div", { class: "nothing" }, ...texts.map((text) => el("p", { text }))));
}

function drawPages() {
  const { pages } = shown;
  if (!pages.length)
    message(t(shown.fax.problem ? "fax.problemlong" : "fax.nopages"));
  else
    byId("pages").replaceChildren(...pages.map((page, n) => makePage(page, n + 1, pages.length)));
  if (!shown.whole && pages.length)
    byId("pages").append(el("p", { class: "warning", text: t("fax.cut") }));
  byId("pages").scrollTo(0, 0);
  layOut();
}

// A page without height cannot be shown, and the server says so beforehand.
function makePage(page, n, all) {
  const { inbox, fax } = shown;
  const source = address("page.png", { inbox, id: fax.id, tag: fax.tag, page: n });
  const image = el("img", { alt: t("fax.page", { n, all }), loading: n > 1 ? "lazy" : "eager", decoding: "async",
    width: page.width, height: page.height });
  const sheet = el("div", { class: "sheet" }, image);
  const again = () => {
    image.src = source;
    sheet.replaceChildren(image);
  };
  image.addEventListener("error", () => sheet.replaceChildren(el("p", { class: "nothing" }, t("fax.unshown"), " ",
    el("button", { type: "button", text: t("fax.retry"), onclick: again }))));
  if (page.height)
    image.src = source;
  else
    sheet.replaceChildren(el("p", { class: "nothing", text: t("fax.unshown") }));
  const damaged = page.damaged ? el("p", { class: "mark bad", text: t("fax.damaged", { n: page.damaged }) }) : null;
  return el("figure", {}, sheet, el("figcaption", {}, el("span", { class: "soft", text: t("fax.page", { n, all }) }), damaged));
}

// The scale at which that page is shown now.
function scaleOf(page) {
  if (scale)
    return scale;
  const room = Math.max(100, byId("pages").clientWidth - margin);
  return room / (turned % 2 && page.height ? page.height : page.width);
}

function layOut() {
  if (!shown)
    return;
  byId("pages").querySelectorAll(".sheet").forEach((sheet, n) => {
    const page = shown.pages[n], by = scaleOf(page);
    const [width, height] = [page.width * by, (page.height || page.width / 4) * by];
    sheet.style.width = `${turned % 2 ? height : width}px`;
    sheet.style.height = `${turned % 2 ? width : height}px`;
    const image = sheet.querySelector("img");
    if (image) {
      image.style.width = `${width}px`;
      image.style.height = `${height}px`;
      image.style.transform = `translate(-50%, -50%) rotate(${turned * 90}deg)`;
    }
  });
  byId("fit").setAttribute("aria-pressed", String(scale === null));
  const percent = shown.pages.length ? Math.round(100 * scaleOf(shown.pages[0])) : 100;
  byId("scale").textContent = `${percent} %`;
}

// Keeps the middle of what is seen in the middle.
function setScale(wanted) {
  const pages = byId("pages");
  const middle = (pages.scrollTop + pages.clientHeight / 2) / pages.scrollHeight;
  scale = wanted;
  layOut();
  pages.scrollTop = middle * pages.scrollHeight - pages.clientHeight / 2;
}

export function zoom(direction) {
  if (!shown?.pages.length)
    return;
  const now = scaleOf(shown.pages[0]);
  const beyond = direction > 0 ? scales.find((other) => other > now * 1.01) : scales.findLast((other) => other < now * 0.99);
  setScale(beyond ?? now);
}

export function fit() {
  setScale(null);
}

export function turn() {
  turned = (turned + 1) % 4;
  layOut();
}

// Pages that were not scrolled to are loaded first.
export async function print() {
  const images = [...byId("pages").querySelectorAll("img")];
  for (const image of images)
    image.loading = "eager";
  await Promise.all(images.map((image) => image.decode().catch(() => {})));
  window.print();
}
