// Kills: which processes the system ended for their memory, as a time line and as a list.
import {look} from "./api.js";
import {bandText} from "./bands.js";
import {axis, barConfig, colour, drawChart, memoryAxis} from "./charts.js";
import {button, element, replace} from "./dom.js";
import {killedName, openKillReport} from "./kill_report.js";
import {avatar, card, emptyCard, failureCard, loading, mark, refreshButton, section} from "./pieces.js";
import {targetAddress} from "./router.js";
import {agoText, dayText, megabytesOf, numberText, sizeText, t, timeText} from "./text.js";

const shownAtOnce = 30;
const barsMax = 8;
const dayMs = 86400000;
const daysShown = 4;
const verdictKinds = {
  held: "good",
  "held-to-the-last": "good",
  "band-of-system": "idle",
  "over-system-limit": "idle",
  unknown: "idle",
};

export const title = () => t("Kills");

// A kill as a row: what, when, why, and whether it was held then.
export function killRow(kill) {
  const facts = [
    t("memory %s", sizeText(kill.memory_bytes)), t("at most %s", sizeText(kill.highest_bytes)),
    t("band %s", bandText(kill.band)), kill.states.join(", ")
  ].filter(Boolean).join(" · ");
  const name = killedName(kill);
  // The button tells the keyboard and the screen reader of what a tap anywhere on the row does.
  const open = (event) => event.target.closest("a") || openKillReport(kill);
  return element(
      "li", {class: "kill", onClick: open}, avatar(name, kill.display_name && kill.target),
      element(
          "div", {class: "row-words"},
          element(
              "span", {class: "kill-head"},
              kill.target ? element("a", {href: targetAddress(kill.target), class: "kill-name"}, name) :
                            element("strong", {class: "kill-name"}, name),
              element(
                  "time", {datetime: kill.time, class: "hint", title: kill.time},
                  kill.time ? agoText(kill.time) : "–")),
          element("span", {}, kill.reason_text),
          kill.verdict_text ?
              element("span", {}, mark(verdictKinds[kill.verdict] || "bad", kill.verdict_text)) :
              null,
          element(
              "span", {class: "hint"}, kill.display_name ? `${kill.target || kill.process} · ` : "",
              timeText(kill.time), " · ", facts),
          kill.log_lines.map((line) => element("code", {class: "kill-log"}, line)),
          button(t("All processes then"), () => {}, "small")));
}

// Whole days, from the day of the first kill to the end of today.
function dayAxis(timesMs) {
  const min = new Date(Math.min(Date.now(), ...timesMs)).setHours(0, 0, 0, 0);
  const max = new Date().setHours(24, 0, 0, 0);
  const days = Math.max(1, Math.round((max - min) / dayMs));
  const ticks = {
    stepSize: Math.ceil(days / daysShown) * dayMs,
    callback: (value) => dayText(new Date(value)),
  };
  return axis({type: "linear", grid: {display: false}, min, max, ticks});
}

function timeLineConfig(kills) {
  const spot = (kill) => ({x: new Date(kill.time).getTime(), y: megabytesOf(kill.memory_bytes), kill});
  const known = kills.filter((kill) => kill.time && kill.memory_bytes !== null);
  const set = (chosen, name) => ({
    data: chosen.map(spot),
    backgroundColor: colour(name),
    pointRadius: 6,
    pointHoverRadius: 8,
    clip: false
  });
  return {
    type: "scatter",
    data: {
      datasets:
          [set(known.filter((kill) => kill.target), "bad"), set(known.filter((kill) => !kill.target), "idle")]
    },
    options: {
      plugins: {
        tooltip:
            {callbacks: {label: ({raw}) => `${killedName(raw.kill)}, ${sizeText(raw.kill.memory_bytes)}`}}
      },
      scales: {
        x: dayAxis(known.map((kill) => new Date(kill.time).getTime())),
        y: memoryAxis({grace: "10%", ticks: {maxTicksLimit: 4}}),
      },
    },
  };
}

// A bar for the largest kill of each process, the largest first.
function largestKills(kills) {
  const largest = new Map();
  for (const kill of kills) {
    const before = largest.get(kill.process);
    if (kill.memory_bytes !== null && (!before || kill.memory_bytes > before.memory_bytes))
      largest.set(kill.process, kill);
  }
  return [...largest.values()]
      .sort((a, b) => b.memory_bytes - a.memory_bytes)
      .slice(0, barsMax)
      .map(
          (kill) =>
              ({name: killedName(kill), bytes: kill.memory_bytes, colour: kill.target ? "bad" : "idle"}));
}

function chartCard(page, heading, legend, height, config) {
  const box = element("div", {class: `chart ${height}`});
  const node = section(heading, card(box, legend));
  drawChart(page, box, heading, config);
  return node;
}

function killLegend() {
  return element(
      "ul", {class: "legend"},
      element("li", {}, element("span", {class: "dot kill-target"}), t("your targets")),
      element("li", {}, element("span", {class: "dot kill-other"}), t("others")));
}

function killList(kills) {
  const list = element("ul", {class: "rows"});
  let shown = 0;
  const more = element("button", {type: "button", class: "button plain"}, t("Show more"));
  const showMore = () => {
    list.append(...kills.slice(shown, shown + shownAtOnce).map(killRow));
    shown += shownAtOnce;
    more.hidden = shown >= kills.length;
  };
  more.addEventListener("click", showMore);
  showMore();
  return [list, more];
}

function problemNodes(problems) {
  if (problems.length === 0) return null;
  return section(
      t("Reports that could not be read"),
      card(element(
          "ul", {class: "rows"},
          problems.map(
              (problem) => element(
                  "li", {class: "problem-row"}, element("code", {}, problem.report.split("/").pop()), " ",
                  problem.message)))));
}

function emptyText(reports) {
  return reports === 0 ?
      t("There are no reports: the system has ended nothing for its memory, or has removed them.") :
      t("The system's %s reports name no process that was ended.", numberText(reports));
}

export function show(page) {
  const load = async () => {
    try {
      const {reports, kills, problems} = await look(["kills"]);
      if (!page.isShown) return;
      const charts = element("div", {});
      replace(
          page.body,
          element(
              "div", {class: "tools"},
              element(
                  "p", {class: "lead"},
                  kills.length > 0 ? t("%s kills in %s reports of the system", numberText(kills.length),
                                       numberText(reports)) :
                                     ""),
              refreshButton(load)),
          charts,
          kills.length > 0 ? section(t("Newest first"), card(killList(kills))) :
                             emptyCard(emptyText(reports)),
          problemNodes(problems));
      if (kills.length === 0) return;
      replace(
          charts,
          chartCard(page, t("When, and how much memory it had"), killLegend(), "", timeLineConfig(kills)),
          chartCard(
              page, t("The largest kill of each process"), null, "tall", barConfig(largestKills(kills))));
    } catch (failure) {
      if (page.isShown) replace(page.body, failureCard(failure, load));
    }
  };
  replace(page.body, loading());
  load();
}
