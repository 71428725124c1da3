// What can be done about a process, each with what it means: keep it alive, limit it, lower it, by hand.
import {proposeEdit} from "./actions.js";
import {bandText} from "./bands.js";
import {element, icon} from "./dom.js";
import {memoryWords} from "./pieces.js";
import {goTo} from "./router.js";
import {closeSheet, openSheet} from "./sheet.js";
import {megabytesOf, numberText, t} from "./text.js";

const homeBand = 160;
const lowNice = 10;
const limitStepMb = 50;

function shownName(process) {
  return process.display_name || process.name;
}

// The name under which the daemon finds the process.
function targetOf(process) {
  return process.bundle_identifier || process.name;
}

// Half more than the most so far, so that ordinary use stays below it.
export function suggestedLimitMb(memory) {
  if (!memory) return 500;
  return Math.max(limitStepMb, Math.ceil((megabytesOf(memory.peak_bytes) * 1.5) / limitStepMb) * limitStepMb);
}

function keepAlive(process) {
  const band = Math.max(homeBand, process.band || 0);
  return {
    title: t("Keep %s alive", shownName(process)),
    words: ["set", "--", targetOf(process), `JetsamPriority=${band}`],
    confirm: t("Keep alive"),
    explain: t(
        "The daemon holds it in the band %s. When memory is short, the system first ends what stands lower.",
        bandText(band))
  };
}

function limitWords(memory, limitMb) {
  return memory ?
      t("The system ends it above %s MB, which is 1.5 times the most that it has used so far.", limitMb) :
      t("The system ends it above %s MB. How much it uses now is unknown.", limitMb);
}

function limit(process) {
  const limitMb = suggestedLimitMb(process.memory);
  return {
    title: t("Limit %s", shownName(process)),
    words: ["set", "--", targetOf(process), `MemLimitActive=${limitMb}`, `MemLimitInactive=${limitMb}`],
    confirm: t("Set the limit"),
    explain: limitWords(process.memory, numberText(limitMb))
  };
}

function lower(process) {
  return {
    title: t("Lower %s", shownName(process)),
    words: ["set", "--", targetOf(process), `NiceValue=${lowNice}`],
    confirm: t("Lower its priority"),
    explain: t("It gets less processor time while others need it. Its memory is not touched.")
  };
}

function choice(name, meaning, onClick) {
  return element(
      "li", {},
      element(
          "button", {type: "button", class: "choice", onClick},
          element(
              "span", {class: "row-words"}, element("strong", {}, name),
              element("span", {class: "hint"}, meaning)),
          icon("forward")));
}

// Opens the sheet that offers the choices.
export function offerChoices(process) {
  const sheet = openSheet(shownName(process));
  const offer = (edit) => () => proposeEdit({...edit, back: () => offerChoices(process)});
  const byHand = () => {
    closeSheet();
    goTo("target", targetOf(process));
  };
  sheet.show(
      element(
          "p", {class: "hint"}, process.bundle_identifier || t("process %s", process.pid), " · ",
          memoryWords(process.memory)),
      element(
          "ul", {class: "choices"},
          choice(t("Keep alive"), t("The system ends it later than others"), offer(keepAlive(process))),
          choice(t("Limit"), t("The system ends it when it uses too much memory"), offer(limit(process))),
          choice(t("Lower priority"), t("Others get processor time first"), offer(lower(process))),
          choice(t("By hand"), t("See and change every setting"), byHand)));
}
