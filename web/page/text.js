// The page's texts in the reader's language, and numbers and times as words. English texts are the keys.
import {keep, kept} from "./storage.js";
import {chinese} from "./zh.js";

function preferredLanguage() {
  const stored = kept("language");
  if (stored === "en" || stored === "zh") return stored;
  return /^zh\b/i.test(navigator.language || "") ? "zh" : "en";
}

let current = preferredLanguage();

// "en" or "zh", as vorlatchctl's --lang takes it.
export function language() {
  return current;
}

export function setLanguage(chosen) {
  current = chosen;
  keep("language", chosen);
}

// The text in the reader's language; each %s is replaced by the next value.
export function t(english, ...values) {
  const text = current === "zh" ? chinese[english] || english : english;
  let next = 0;
  return text.replace(/%s/g, () => String(values[next++]));
}

function locale() {
  return current === "zh" ? "zh-CN" : "en";
}

function withDigits(number, digits) {
  return number.toLocaleString(locale(), {maximumFractionDigits: digits});
}

export const bytesPerMegabyte = 1024 * 1024;

// "602 MB", or "1.5 GB" from 1024 MB on, which no line break divides; a dash if the kernel tells no number.
export function sizeText(bytes) {
  if (bytes === null || bytes === undefined) return "–";
  const megabytes = bytes / bytesPerMegabyte;
  if (megabytes >= 1024) return `${withDigits(megabytes / 1024, 1)}\u00a0GB`;
  return `${withDigits(megabytes, megabytes < 10 ? 1 : 0)}\u00a0MB`;
}

export function megabytesOf(bytes) {
  return bytes / bytesPerMegabyte;
}

export function numberText(number) {
  return number.toLocaleString(locale());
}

// "22 Nov, 19:12:45" of an ISO 8601 time; a dash for none.
export function timeText(iso) {
  if (!iso) return "–";
  const options = {month: "short", day: "numeric", hour: "2-digit", minute: "2-digit", hourCycle: "h23"};
  return new Date(iso).toLocaleString(locale(), options);
}

export function clockText(date) {
  return date.toLocaleTimeString(locale(), {hourCycle: "h23"});
}

export function dayText(date) {
  return date.toLocaleDateString(locale(), {month: "short", day: "numeric"});
}

const units = [["day", 86400], ["hour", 3600], ["minute", 60]];

// "2 hours ago" of an ISO 8601 time.
export function agoText(iso) {
  const seconds = (Date.now() - new Date(iso).getTime()) / 1000;
  const format = new Intl.RelativeTimeFormat(locale(), {numeric: "auto"});
  for (const [unit, length] of units) {
    if (seconds >= length) return format.format(-Math.floor(seconds / length), unit);
  }
  return t("just now");
}

// Options of vorlatchctl mean nothing on a page: the button beside the message does the same.
export function withoutOptions(message) {
  return message.replace(/(; |, or |；|，或用 ?)--force.*$/, "");
}
