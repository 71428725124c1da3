// One target: its state, every setting with what the kernel says, the daemon's steps, its log, its kills.
import {onEdit, proposeEdit, proposeUndo} from "./actions.js";
import {look} from "./api.js";
import {button, element, icon, redraw, replace, setText} from "./dom.js";
import {killRow} from "./kills.js";
import {onChange} from "./live.js";
import {logList} from "./log.js";
import {avatar, card, kindOf, limitBar, loading, mark, memoryWords, section} from "./pieces.js";
import {goTo} from "./router.js";
import {settingRows} from "./settings.js";
import {reasonText, shownName} from "./target_card.js";
import {targetChart} from "./target_chart.js";
import {editSetting} from "./target_editor.js";
import {t} from "./text.js";

const logLines = 10;
const loadEveryMs = 15000;

export const title = () => t("Target");

function makeHead(name) {
  const heading = element("strong", {class: "head-name"});
  const subtitle = element("span", {class: "hint"});
  const state = element("span", {class: "head-state", role: "status"});
  const words = element("p", {});
  const bar = element("span", {class: "bar-place"});
  const picture = element("span", {}, avatar(name));
  const node = card(
      element(
          "div", {class: "card-head"}, picture, element("span", {class: "card-names"}, heading, subtitle),
          state),
      words, bar);
  return {
    node,
    draw(target) {
      const now = target && target.now;
      const shown = target ? shownName(target) : name;
      if (heading.textContent !== shown)
        replace(picture, avatar(shown, target && target.display_name && name));
      setText(heading, shown);
      setText(
          subtitle,
          [shown !== name ? name : "", now ? t("process %s", now.pid) : ""].filter(Boolean).join(" · "));
      const isTarget = Boolean(target && target.verdict);
      const verdict = isTarget ? target.verdict_text : t("no target");
      if (state.textContent !== verdict)
        replace(state, mark(isTarget ? kindOf(target.verdict) : "idle", verdict));
      setText(words, [
        isTarget ? reasonText(target) :
                   t("Nothing is set for it yet. Choose a setting below to make it a target."),
        now ? memoryWords(now.memory) : null
      ].filter(Boolean).join(" "));
      replace(bar, limitBar(now && now.memory));
    },
  };
}

function wantedText(row, target, stored) {
  if (row.key in stored) {
    const value = stored[row.key];
    return typeof value === "object" ? JSON.stringify(value) : row.text(value);
  }
  if (!row.wanted || !target || !target.wanted || target.wanted[row.wanted] === null) return t("not set");
  return row.text(target.wanted[row.wanted]);
}

function kernelText(row, target) {
  if (!row.now || !target || !target.now || !(row.now in target.now)) return null;
  const value = target.now[row.now];
  if (value === null) return t("the kernel does not say");
  return t("the kernel says: %s", row.atNow(value));
}

function settingNode(row, target, stored, edit) {
  const kernel = kernelText(row, target);
  return element(
      "li", {},
      element(
          "button", {type: "button", class: "setting", "data-key": row.key, onClick: () => edit(row)},
          element(
              "span", {class: "setting-head"}, element("span", {class: "setting-name"}, t(row.label)),
              element("strong", {}, wantedText(row, target, stored)), icon("forward")),
          kernel ? element("span", {class: "setting-now"}, kernel) : null,
          element("span", {class: "hint"}, t(row.meaning))));
}

async function planNodes(name) {
  const {targets} = await look(["plan"]);
  const plan = targets.find((found) => found.target === name);
  if (!plan) return element("p", {class: "hint"}, t("It is no target: the daemon does nothing."));
  const held = plan.held_already ?
      element("p", {class: "hint"}, t("It has done this already for this process.")) :
      null;
  return [
    element("p", {}, plan.reason), held,
    element("ol", {class: "steps"}, plan.steps.map((step) => element("li", {}, step))),
    element("p", {class: "hint"}, plan.afterwards)
  ];
}

async function logNodes(name) {
  const lines = await look(["log", "-n", String(logLines), "--target", name]);
  const all =
      element("a", {class: "button plain", href: `#/log/${encodeURIComponent(name)}`}, t("All of its log"));
  return lines.length > 0 ? [logList(lines), element("div", {class: "buttons"}, all)] :
                            element("p", {class: "hint"}, t("The log does not name it."));
}

async function killNodes(name) {
  const {kills} = await look(["kills", "--", name]);
  if (kills.length === 0)
    return element("p", {class: "hint"}, t("The system has not ended it, as far as its reports go back."));
  return element("ul", {class: "rows"}, kills.slice(0, 5).map(killRow));
}

function applyAgain(name) {
  proposeEdit({
    title: t("Apply again"),
    words: ["apply", "--again", "--", name],
    hasNoDryRun: true,
    hasNoUndo: true,
    confirm: t("Apply again"),
    explain: [
      t("The daemon applies all settings of this target once more."),
      t("Its counter ApplyAgain goes up by one.")
    ],
  });
}

function removeTarget(name) {
  proposeEdit({
    title: t("Remove the target"),
    words: ["remove", "--", name],
    confirm: t("Remove"),
    danger: true,
    explain: t("The daemon hands its process back to the system. These settings go:"),
    done: () => goTo("now"),
  });
}

function actionButtons(name, isTarget) {
  return element(
      "div", {class: "buttons"}, isTarget ? button(t("Apply again"), () => applyAgain(name)) : null,
      button(t("Undo the last edit"), () => proposeUndo()),
      isTarget ? button(t("Remove the target"), () => removeTarget(name), "danger-quiet") : null);
}

// The parts below the settings, each loaded by itself so that one failure leaves the others. Its kills are in
// all reports of the system, which take long to read: they are loaded once, and again after a kill.
function makeDetails(page, name) {
  const places = [
    [t("What the daemon does"), planNodes], [t("Its log"), logNodes], [t("Its kills"), killNodes]
  ].map(([heading, load]) => ({heading, load, box: element("div", {class: "card"}, loading())}));
  let knownKill = null;
  const node = element("div", {hidden: true}, places.map(({heading, box}) => section(heading, box)));
  return {
    node,
    load(isTarget, lastKill) {
      node.hidden = !isTarget;
      if (!isTarget) return;
      const hasNewKill = lastKill !== knownKill;
      knownKill = lastKill;
      places.filter(({load}) => load !== killNodes || hasNewKill)
          .forEach(({load, box}) => page.load(box, () => load(name)));
    },
  };
}

async function storedSettings(name) {
  const stored = (await look(["list"])).targets[name];
  return stored && typeof stored === "object" ? stored : null;
}

// A process that is no target, as far as "ps" tells of it, in the form of a target.
async function processNamed(name) {
  const {processes} = await look(["ps", "--", name]);
  const found = processes.find((process) => process.bundle_identifier === name || process.name === name);
  if (!found) return null;
  const {pid, name: processName, display_name: displayName, band, nice, memory} = found;
  return {target: name, display_name: displayName, now: {pid, name: processName, band, nice, memory}};
}

export function show(page, name) {
  const head = makeHead(name);
  const chart = targetChart(page, name);
  const settings = element("ul", {class: "rows"});
  const actions = element("div", {});
  const details = makeDetails(page, name);
  let target = null;
  let stored = null;

  const edit = (row) =>
      editSetting({target: name, row, stored: (stored || {})[row.key], now: target && target.now});
  const drawSettings = () => {
    redraw(settings, settingRows.map((row) => settingNode(row, target, stored || {}, edit)));
  };
  const draw = (shown) => {
    target = shown;
    head.draw(target);
    chart.draw(target);
    drawSettings();
  };
  const load = async () => {
    await page.load(actions, async () => {
      stored = await storedSettings(name);
      if (!stored) draw(await processNamed(name));
      drawSettings();
      return actionButtons(name, stored !== null);
    });
    const lastKill = target && target.last_kill;
    details.load(stored !== null, lastKill ? lastKill.time : undefined);
  };
  replace(
      page.body, element("a", {class: "back", href: "#/now"}, icon("back"), t("All targets")), head.node,
      chart.node, section(t("Settings"), card(settings)), actions, details.node);
  page.onLeave(onChange((live) => {
    if (!live.status) return;
    const found = live.status.targets.find((listed) => listed.target === name);
    if (found || !target || target.verdict) draw(found || null);
  }));
  page.onLeave(onEdit(load));
  page.every(loadEveryMs, load);
  load();
}
