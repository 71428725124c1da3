// Now: the switch, the phone's memory, and a card per target.
import {onEdit, proposeEdit} from "./actions.js";
import {look} from "./api.js";
import {button, element, replace, setText} from "./dom.js";
import {onChange} from "./live.js";
import {emptyCard, failureCard, loading, section} from "./pieces.js";
import {profileSection} from "./profiles.js";
import {targetCard} from "./target_card.js";
import {numberText, sizeText, t} from "./text.js";

const memoryEveryMs = 30000;
const urgency = ["overridden", "stale-status", "not-applied-yet", "held", "not-running", "switched-off"];

export const title = () => t("Now");

function proposeSwitch(isOn) {
  proposeEdit(
      isOn ? {
        title: t("Switch off"),
        words: ["disable"],
        confirm: t("Switch off"),
        danger: true,
        explain: t(
            "The daemon hands every target back to the system, and holds none until you switch it on again."),
        said: t("Switched off. All targets are handed back.")
      } :
             {
               title: t("Switch on"),
               words: ["enable"],
               confirm: t("Switch on"),
               explain: t("The daemon applies your settings to every target, and holds them.")
             });
}

function heroSentence(status) {
  const held = status.targets.filter((target) => target.verdict === "held").length;
  const running = status.targets.filter((target) => target.now).length;
  if (status.daemon_pids.length === 0)
    return t("The daemon does not run: nothing is held. Doctor says what to do.");
  if (!status.enabled) return t("All targets are with the system.");
  if (running === 0) return t("No target runs now. The daemon waits for them.");
  return t("%s of %s running targets held", numberText(held), numberText(running));
}

// The switch with a sentence on how things stand.
function makeHero() {
  const state = element("strong", {class: "hero-state"});
  const sentence = element("span", {class: "hero-sentence"});
  const knob =
      element("button", {type: "button", role: "switch", class: "switch", "aria-label": t("Vorlatch")});
  let isOn = false;
  knob.addEventListener("click", () => proposeSwitch(isOn));
  return {
    node: element("div", {class: "card hero"}, element("div", {class: "hero-words"}, state, sentence), knob),
    draw(status) {
      isOn = status.enabled;
      knob.setAttribute("aria-checked", String(isOn));
      setText(state, isOn ? t("Switched on") : t("Switched off"));
      setText(sentence, heroSentence(status));
    },
  };
}

function memoryPart(kind, bytes, total) {
  const part = element("span", {class: `memory-part ${kind}`});
  part.style.width = `${(bytes / total) * 100}%`;
  return part;
}

function legend(kind, name, bytes) {
  return element(
      "li", {}, element("span", {class: `dot ${kind}`}), name, " ", element("strong", {}, sizeText(bytes)));
}

// The phone's memory as one bar.
async function memoryNodes() {
  const {memory} = await look(["doctor"]);
  if (!memory || memory.total_bytes === null || memory.free_bytes === null) {
    return element("p", {class: "hint"}, t("The kernel does not tell this user how much memory is free."));
  }
  const compressed = memory.compressed_bytes || 0;
  const used = Math.max(0, memory.total_bytes - memory.free_bytes - compressed);
  return [
    element(
        "div", {class: "memory-bar", "aria-hidden": "true"}, memoryPart("used", used, memory.total_bytes),
        memoryPart("compressed", compressed, memory.total_bytes)),
    element(
        "ul", {class: "legend"}, legend("used", t("in use"), used),
        compressed > 0 ? legend("compressed", t("compressed"), compressed) : null,
        legend("free", t("free"), memory.free_bytes))
  ];
}

function addPreset() {
  proposeEdit({
    title: t("Suggested targets"),
    words: ["preset"],
    confirm: t("Add them"),
    explain: t("This adds the targets of the default preset. Targets that are configured stay as they are."),
  });
}

function noTargets() {
  return emptyCard(
      t("There are no targets yet. Choose one from the processes, or begin with the suggested ones."),
      element(
          "div", {class: "buttons"}, button(t("Add the suggested targets"), addPreset, "primary"),
          element("a", {class: "button plain", href: "#/processes"}, t("Choose a process"))));
}

function byUrgency(a, b) {
  return urgency.indexOf(a.verdict) - urgency.indexOf(b.verdict) || a.target.localeCompare(b.target);
}

// Keeps the card of each target, so that what the reader has focused stays where it is.
function makeCards() {
  const cards = new Map();
  const list = element("ul", {class: "cards"});
  let order = "";
  return {
    node: list,
    draw(targets) {
      const sorted = [...targets].sort(byUrgency);
      const names = new Set(sorted.map((target) => target.target));
      [...cards.keys()].filter((name) => !names.has(name)).forEach((name) => cards.delete(name));
      for (const target of sorted) {
        if (!cards.has(target.target)) cards.set(target.target, targetCard(target.target));
        cards.get(target.target).draw(target);
      }
      const wanted = sorted.map((target) => target.target).join("\n");
      if (wanted !== order) replace(list, sorted.map((target) => cards.get(target.target).node));
      order = wanted;
      if (sorted.length === 0) replace(list, element("li", {}, noTargets()));
    },
    remark(name, text) {
      if (cards.has(name)) cards.get(name).remark(text);
    },
  };
}

async function showRemarks(cards) {
  try {
    const {targets} = await look(["list"]);
    for (const [name, settings] of Object.entries(targets)) cards.remark(name, (settings || {}).Remark);
  } catch {
    // Cards without remarks say everything that matters; the live state tells of a server that has gone.
  }
}

export function show(page) {
  const hero = makeHero();
  const cards = makeCards();
  const memory = element("div", {class: "card memory"}, loading());
  const profiles = element("div", {});
  const refresh = () => page.load(memory, memoryNodes);
  let isBuilt = false;

  const draw = (live) => {
    if (!live.status) {
      replace(page.body, live.failure ? failureCard(live.failure, () => {}) : loading());
      return;
    }
    hero.draw(live.status);
    cards.draw(live.status.targets);
    if (isBuilt) return;
    isBuilt = true;
    replace(
        page.body, hero.node, section(t("Memory of this device"), memory), section(t("Targets"), cards.node),
        profiles);
    refresh();
    showRemarks(cards);
    profileSection(page, profiles);
  };
  page.onLeave(onChange(draw));
  page.onLeave(onEdit(() => showRemarks(cards)));
  page.every(memoryEveryMs, () => isBuilt && refresh());
}
