// Log: the daemon's lines, live, coloured by category, filtered by category, target and text.
import {look} from "./api.js";
import {element, replace, setText} from "./dom.js";
import {live} from "./live.js";
import {emptyCard, failureCard, loading} from "./pieces.js";
import {numberText, t} from "./text.js";

const linesMax = 300;
const everyMs = 3000;
const wish = {
  category: "",
  target: "",
  text: ""
};

// The code of each category's colour in style.css, by its name in both languages.
const colours = {
  daemon: 1,
  kernel: 2,
  preferences: 3,
  process: 4,
  band: 5,
  limits: 6,
  nice: 7,
  system: 8,
  restore: 9,
  managed: 5,
  adapted: 8,
  patrol: 1,
  守护: 1,
  内核: 2,
  配置: 3,
  进程: 4,
  内存优先级: 5,
  内存限制: 6,
  进程优先级: 7,
  系统: 8,
  恢复: 9,
  状态剥离: 5,
  环境适配: 8,
  全局守护: 1,
};

export const title = () => t("Log");

function isRule(line) {
  return line.code === "target-rule" || line.code === "chapter-rule";
}

function lineKind(code) {
  if (/-refused$|-unreadable$/.test(code || "")) return "refused";
  return /-overridden$|not-listed$/.test(code || "") ? "overridden" : "";
}

function lineNode(line) {
  if (isRule(line)) return element("li", {class: "log-rule", "aria-hidden": "true"});
  return element(
      "li", {class: `log-line ${lineKind(line.code)}`},
      element("span", {class: "log-stamp"}, line.stamp.replace(/^\d\d-\d\d /, "")),
      line.category ?
          element("span", {class: `log-category category${colours[line.category] || 0}`}, line.category) :
          null,
      element("span", {class: "log-text"}, line.text.trim().replace(/->/g, "→")));
}

// Lines of the log, the oldest first; a new day begins with its date.
export function logList(lines) {
  let day = "";
  return element(
      "ol", {class: "log"},
      lines
          .map((line) => {
            const newDay = line.stamp.slice(0, 5);
            const heading =
                newDay && newDay !== day && !isRule(line) ? element("li", {class: "log-day"}, newDay) : null;
            if (heading) day = newDay;
            return [heading, lineNode(line)];
          })
          .flat());
}

function isWished(line) {
  if (isRule(line)) return wish.category === "" && wish.text === "";
  if (wish.category && line.category !== wish.category) return false;
  return line.text.toLowerCase().includes(wish.text.toLowerCase());
}

function select(label, choices, chosen, onChoose) {
  return element(
      "select", {class: "input", "aria-label": label, onChange: (event) => onChoose(event.target.value)},
      choices.map(([value, text]) => element("option", {value, selected: value === chosen}, text)));
}

function targetChoices() {
  const names = live.status ? live.status.targets.map((target) => target.target) : [];
  const wished = wish.target && !names.includes(wish.target) ? [wish.target] : [];
  return [["", t("All targets")], ...names.concat(wished).map((name) => [name, name])];
}

function categoryChoices(lines) {
  const names = [...new Set(lines.map((line) => line.category).filter(Boolean))].sort();
  if (wish.category && !names.includes(wish.category)) wish.category = "";
  return [["", t("All categories")], ...names.map((name) => [name, name])];
}

// A view that follows the log keeps its end in sight, unless the reader has scrolled up.
function isAtEnd(box) {
  return box.scrollHeight - box.scrollTop - box.clientHeight < 40;
}

export function show(page, target) {
  if (target) wish.target = target;
  const box =
      element("div", {class: "card log-box", tabindex: "0", role: "log", "aria-label": t("Log")}, loading());
  const filters = element("div", {class: "filters"});
  const count = element("p", {class: "hint count"});
  let lines = [];
  let last = "";
  let categories = "";

  const draw = () => {
    const follows = last === "" || isAtEnd(box);
    const shown = lines.filter(isWished);
    setText(
        count,
        t("The last %s lines; new ones come by themselves",
          numberText(shown.filter((line) => !isRule(line)).length)));
    replace(
        box,
        shown.length > 0 ?
            logList(shown) :
            emptyCard(
                lines.length > 0 ? t("No line fits. Choose another category, target or text.") :
                                   t("The log is empty. The daemon writes to it as soon as it runs.")));
    if (follows) box.scrollTop = box.scrollHeight;
  };
  const drawFilters = () => {
    const choices = categoryChoices(lines);
    const drawn = JSON.stringify(choices);
    if (drawn === categories || filters.contains(document.activeElement)) return;
    categories = drawn;
    replace(filters, select(t("Category"), choices, wish.category, (value) => {
              wish.category = value;
              draw();
            }), select(t("Target"), targetChoices(), wish.target, (value) => {
              wish.target = value;
              last = "";
              load();
            }));
  };
  const load = async () => {
    const asked = wish.target;
    const option = asked ? ["--target", asked] : [];
    try {
      const answer = await look(["log", "-n", String(linesMax), ...option]);
      if (asked !== wish.target) return;
      lines = answer;
      const found = JSON.stringify(lines);
      if (!page.isShown || found === last) return;
      drawFilters();
      draw();
      last = found;
    } catch (failure) {
      last = "";
      if (page.isShown) replace(box, failureCard(failure, load));
    }
  };
  const search = element("input", {
    type: "search",
    class: "input",
    value: wish.text,
    placeholder: t("Search"),
    "aria-label": t("Search the log"),
    onInput(event) {
      wish.text = event.target.value;
      draw();
    }
  });
  replace(page.body, element("div", {class: "tools"}, search), filters, count, box);
  page.every(everyMs, load);
  load();
}
