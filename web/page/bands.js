// The jetsam bands by name, asked for once per language.
import {look} from "./api.js";
import {language, t} from "./text.js";

const names = {
  idle: "idle",
  background: "background",
  mail: "mail",
  phone: "phone",
  freezer: "freezer",
  "ui-support": "UI support",
  "foreground-support": "foreground support",
  foreground: "foreground",
  "audio-and-accessory": "audio and accessory",
  conductor: "conductor",
  driver: "driver",
  home: "home",
  executive: "executive",
  important: "important",
  "default": "default",
  telephony: "telephony",
  critical: "critical",
  highest: "highest",
};

const numbers = {
  0: "idle",
  10: "idle",
  20: "idle",
  30: "background",
  40: "mail",
  50: "phone",
  75: "freezer",
  80: "ui-support",
  90: "foreground-support",
  100: "foreground",
  120: "audio-and-accessory",
  130: "conductor",
  150: "driver",
  160: "home",
  170: "executive",
  180: "important",
  190: "critical",
  210: "highest",
};

let known = null;

// "160 home", or the number alone if no band has it. Kernels up to iOS 15 count in tenths.
export function bandText(band) {
  if (band === null || band === undefined) return "–";
  const name = numbers[band];
  return name ? `${band} ${t(names[name])}` : String(band);
}

// The bands that can be chosen, the highest first: [{number, label}].
export async function bandChoices() {
  if (!known || known.language !== language()) {
    const {bands} = await look(["bands"]);
    known = {language: language(), bands};
  }
  const choices = new Map();
  for (const band of known.bands) {
    if (band.reserved || band.since_ios16 === 0) continue;
    const label = t(names[band.name] || band.name);
    const before = choices.get(band.since_ios16);
    choices.set(band.since_ios16, before ? `${before}, ${label}` : label);
  }
  return [...choices].sort((a, b) => b[0] - a[0]).map(([number, label]) => ({number, label}));
}
