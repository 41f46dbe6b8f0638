// format: numbers and times as people read them. Dates follow the browser's locale, words the page's language.
import { language, t } from "./texts.js";

const locale = navigator.languages;
const minute = 60, hour = 60 * minute, day = 24 * hour; // seconds
const clock = new Intl.DateTimeFormat(locale, { hour: "numeric", minute: "2-digit" });
const thisYear = new Intl.DateTimeFormat(locale, { day: "numeric", month: "short", hour: "numeric", minute: "2-digit" });
const otherYear = new Intl.DateTimeFormat(locale, { dateStyle: "medium" });
const exact = new Intl.DateTimeFormat(locale, { dateStyle: "medium", timeStyle: "short" });

// All times are seconds since 1970.
export function shortTime(seconds, now = new Date()) {
  const when = new Date(seconds * 1000);
  if (when.toDateString() === now.toDateString())
    return clock.format(when);
  return (when.getFullYear() === now.getFullYear() ? thisYear : otherYear).format(when);
}

// Relative to now, so good for a moment only.
export function ago(seconds) {
  const past = Math.round(Date.now() / 1000) - seconds;
  const [unit, length] = Math.abs(past) < hour ? ["minute", minute] : Math.abs(past) < day ? ["hour", hour] : ["day", day];
  return new Intl.RelativeTimeFormat(language(), { numeric: "auto" }).format(-Math.round(past / length), unit);
}

export function exactTime(seconds) {
  return exact.format(new Date(seconds * 1000));
}

export function size(bytes) {
  const number = (value, digits) => value.toLocaleString(language(), { maximumFractionDigits: digits });
  if (bytes < 1000)
    return `${number(bytes, 0)} B`;
  return bytes < 1e6 ? `${number(bytes / 1000, 0)} kB` : `${number(bytes / 1e6, 1)} MB`;
}

export function count(n) {
  return n.toLocaleString(language());
}

// What a fax is called in sentences: where it came from and when.
export function faxName(fax) {
  return t("fax.of", { sender: fax.sender || t("fax.unknown"), time: shortTime(fax.mtime) });
}
