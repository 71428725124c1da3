// A target's settings: how each is named, explained, and shown.
import {bandText} from "./bands.js";
import {numberText, t} from "./text.js";

function limitText(value) {
  return value === null || value < 1 ? t("system") : `${numberText(value)} MB`;
}

function bandWanted(value) {
  if (value === -1) return t("left alone");
  return value === 0 ? t("system") : bandText(value);
}

function timerText(value) {
  return value < 1 ? t("none") : t("every %s s", numberText(value));
}

function truthText(value) {
  return value ? t("yes") : t("no");
}

const limitMeaning = "The system ends the process as soon as it uses more than this.";

// `wanted` and `now` are the names in vorlatchctl's JSON; `atNow` shows the kernel's value.
export const settingRows = [
  {
    key: "JetsamPriority",
    label: "Band",
    editor: "band",
    wanted: "band",
    now: "band",
    meaning: "When memory is short, the system ends processes in low bands first.",
    text: bandWanted,
    atNow: bandText
  },
  {
    key: "MemLimitActive",
    label: "Memory limit while active",
    editor: "limit",
    wanted: "active_limit_mb",
    now: "active_limit_mb",
    meaning: limitMeaning,
    text: limitText,
    atNow: limitText
  },
  {
    key: "MemLimitInactive",
    label: "Memory limit while inactive",
    editor: "limit",
    wanted: "inactive_limit_mb",
    now: "inactive_limit_mb",
    meaning: limitMeaning,
    text: limitText,
    atNow: limitText
  },
  {
    key: "NiceValue",
    label: "Nice value",
    editor: "nice",
    wanted: "nice",
    now: "nice",
    meaning: "A process with a low value gets more processor time.",
    text: String,
    atNow: String
  },
  {
    key: "StripManaged",
    label: "Out of the system's management",
    editor: "truth",
    wanted: "strip_managed",
    now: "managed",
    meaning: "The system then neither freezes the process nor moves it to a low band.",
    text: truthText,
    atNow: (managed) => (managed ? t("managed") : t("not managed"))
  },
  {
    key: "CheckInterval",
    label: "Timer",
    editor: "timer",
    wanted: "interval_s",
    now: null,
    meaning: "How often the daemon looks at this target and holds it again. Without a timer: every 1800 s.",
    text: timerText,
    atNow: null
  },
  {
    key: "Remark",
    label: "Remark",
    editor: "text",
    wanted: null,
    now: null,
    meaning: "A note for yourself; the daemon never reads it.",
    text: String,
    atNow: null
  },
];

const rowsByKey = new Map(settingRows.map((row) => [row.key, row]));
const otherLabels = {
  Enabled: "Switch",
  LogSizeLimit: "Largest log",
  ApplyAgain: "Applied again"
};

export function keyLabel(key) {
  const row = rowsByKey.get(key);
  if (row) return t(row.label);
  return otherLabels[key] ? t(otherLabels[key]) : key;
}

// A stored value for people. Files may hold any type under any key.
export function valueText(key, value) {
  if (value === null || value === undefined) return t("not set");
  if (key === "Enabled") return value ? t("on") : t("off");
  if (typeof value === "boolean") return truthText(value);
  const row = rowsByKey.get(key);
  if (row && typeof value === "number") return row.text(value);
  return typeof value === "object" ? JSON.stringify(value) : String(value);
}
