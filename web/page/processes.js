// Processes: sorted by memory, searched, extensions below their app; a tap offers what can be done.
import {onEdit} from "./actions.js";
import {look} from "./api.js";
import {bandText} from "./bands.js";
import {element, redraw, replace, setText} from "./dom.js";
import {live} from "./live.js";
import {avatar, emptyCard, failureCard, limitBar, loading, mark, refreshButton} from "./pieces.js";
import {offerChoices} from "./process_choices.js";
import {numberText, sizeText, t} from "./text.js";

const everyMs = 10000;
const kinds = [["all", "All"], ["apps", "Apps"], ["system", "System"]];
// Kept while the page is open, so that the way back from a target leads to the same list.
const wish = {
  text: "",
  kind: "all"
};

export const title = () => t("Processes");

function usedBytes(process) {
  return process.memory ? process.memory.used_bytes : 0;
}

// The app whose identifier a process's identifier extends: com.a.b for com.a.b.share.
function appOf(process, apps) {
  const identifier = process.bundle_identifier;
  return identifier && apps.find((app) => identifier.startsWith(`${app}.`));
}

// Groups of an app and its extensions, or of one process, the largest memory first.
export function groupsOf(processes) {
  const apps = [...new Set(processes.map((process) => process.bundle_identifier).filter(Boolean))].sort(
      (a, b) => a.length - b.length);
  const groups = new Map();
  for (const process of processes) {
    const key = appOf(process, apps) || process.bundle_identifier || `${process.name} ${process.pid}`;
    if (!groups.has(key)) groups.set(key, {key, members: [], bytes: 0});
    const group = groups.get(key);
    group.members.push(process);
    group.bytes += usedBytes(process);
  }
  for (const group of groups.values()) {
    group.members.sort(
        (a, b) => (b.bundle_identifier === group.key) - (a.bundle_identifier === group.key) ||
            usedBytes(b) - usedBytes(a));
  }
  return [...groups.values()].sort((a, b) => b.bytes - a.bytes);
}

function targetNames() {
  return new Set(live.status ? live.status.targets.map((target) => target.target) : []);
}

function processRow(process, targets, isMember) {
  const isTarget = targets.has(process.bundle_identifier) || targets.has(process.name);
  const shown = process.display_name || process.name;
  const subtitle =
      [process.bundle_identifier, t("band %s", bandText(process.band))].filter(Boolean).join(" · ");
  return element(
      "li", {},
      element(
          "button", {
            type: "button",
            class: isMember ? "process member" : "process",
            "data-key": process.pid,
            onClick: () => offerChoices(process)
          },
          isMember ? null : avatar(shown, process.display_name && process.bundle_identifier),
          element(
              "span", {class: "row-words"}, element("strong", {}, shown),
              element("span", {class: "hint"}, subtitle), limitBar(process.memory)),
          element(
              "span", {class: "row-end"},
              element("strong", {}, process.memory ? sizeText(process.memory.used_bytes) : t("hidden")),
              isTarget ? mark("good", t("target")) : null)));
}

function groupNode(group, targets) {
  const [head, ...members] = group.members;
  const total = members.length > 0 ?
      element(
          "p", {class: "group-total"},
          t("%s processes, together %s", numberText(group.members.length), sizeText(group.bytes))) :
      null;
  return element(
      "li", {class: "card group"},
      element(
          "ul", {}, processRow(head, targets, false),
          members.map((member) => processRow(member, targets, true))),
      total);
}

function isWished(group) {
  const text = wish.text.trim().toLowerCase();
  const isApp = group.members.some((process) => process.bundle_identifier);
  if (wish.kind !== "all" && (wish.kind === "apps") !== isApp) return false;
  return group.members.some(
      (process) => [process.name, process.bundle_identifier, process.display_name]
                       .join("\n")
                       .toLowerCase()
                       .includes(text));
}

function kindButtons(draw) {
  const buttons = kinds.map(
      ([kind, label]) => element(
          "button", {
            type: "button",
            "aria-pressed": String(wish.kind === kind),
            onClick() {
              wish.kind = kind;
              buttons.forEach(
                  (node, index) => node.setAttribute("aria-pressed", String(kinds[index][0] === kind)));
              draw();
            }
          },
          t(label)));
  return element("div", {class: "segments", role: "group", "aria-label": t("Which processes")}, buttons);
}

function searchField(draw) {
  return element("input", {
    type: "search",
    class: "input",
    value: wish.text,
    "aria-label": t("Search processes"),
    placeholder: t("Search"),
    autocapitalize: "off",
    autocomplete: "off",
    spellcheck: "false",
    onInput(event) {
      wish.text = event.target.value;
      draw();
    }
  });
}

export function show(page) {
  const list = element("ul", {class: "cards"});
  const count = element("p", {class: "hint count", role: "status"});
  let groups = null;

  const draw = () => {
    if (!groups) return;
    const shown = groups.filter(isWished);
    const targets = targetNames();
    setText(count, t("%s shown, most memory first", numberText(shown.length)));
    redraw(list, shown.map((group) => groupNode(group, targets)));
    if (shown.length === 0) {
      replace(
          list,
          element(
              "li", {},
              emptyCard(t("No process has this in its name. An app shows up as soon as it runs."))));
    }
  };
  const load = async () => {
    try {
      groups = groupsOf((await look(["ps"])).processes);
      if (page.isShown) draw();
    } catch (failure) {
      if (page.isShown) replace(list, element("li", {}, failureCard(failure, load)));
    }
  };
  replace(list, element("li", {}, loading()));
  replace(
      page.body, element("div", {class: "tools"}, searchField(draw), refreshButton(load)), kindButtons(draw),
      count, list);
  page.every(everyMs, load);
  page.onLeave(onEdit(load));
  load();
}
