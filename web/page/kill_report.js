// The memory of every process at the moment of a kill: the largest as bars, and in words as a table.
import {look} from "./api.js";
import {bandText} from "./bands.js";
import {barConfig, drawChart} from "./charts.js";
import {element} from "./dom.js";
import {failureCard, loading, mark} from "./pieces.js";
import {openSheet} from "./sheet.js";
import {numberText, sizeText, t, timeText} from "./text.js";

const largestMax = 10;

// What the home screen calls a process in a report, or its own name.
export function killedName(process) {
  return process.display_name || process.process || t("unknown");
}

function isOf(kill) {
  return (process) => process.process === kill.process && process.pid === kill.pid && process.reason !== null;
}

function colourOf(process) {
  if (process.reason !== null) return "bad";
  return process.target ? "accent" : "idle";
}

// The ten largest processes, the one of the kill if it is not among them, and all others as one.
function barsOf(report, kill) {
  const shown = report.processes.slice(0, largestMax);
  const killed = report.processes.find(isOf(kill));
  if (killed && !shown.includes(killed)) shown.push(killed);
  const bars = shown.map((process) => ({
                           name: killedName(process),
                           bytes: process.memory_bytes,
                           band: process.band,
                           wasEnded: process.reason !== null,
                           colour: colourOf(process)
                         }));
  const others = report.all.processes - shown.length;
  if (others > 0) {
    const bytes = shown.reduce((rest, process) => rest - process.memory_bytes, report.all.memory_bytes);
    bars.push({name: t("%s others", numberText(others)), bytes, band: null, colour: "idle"});
  }
  return bars;
}

function barRow({name, bytes, band, wasEnded}) {
  return element(
      "tr", {}, element("th", {scope: "row"}, name, wasEnded ? [" ", mark("bad", t("ended"))] : null),
      element("td", {class: "size"}, sizeText(bytes)),
      element("td", {}, band === null ? "–" : bandText(band)));
}

function barTable(heading, bars) {
  const headings = [t("Process"), t("Memory"), t("Band")];
  return element(
      "table", {class: "figures"}, element("caption", {}, heading),
      element("thead", {}, element("tr", {}, headings.map((text) => element("th", {scope: "col"}, text)))),
      element("tbody", {}, bars.map(barRow)));
}

function legend(bars) {
  const meanings = [["bad", t("ended")], ["accent", t("your targets")], ["idle", t("others")]];
  return element(
      "ul", {class: "legend"},
      meanings.filter(([name]) => bars.some((bar) => bar.colour === name))
          .map(([name, text]) => element("li", {}, element("span", {class: `dot bar-${name}`}), text)));
}

function sumText({time, all, free_bytes: freeBytes}) {
  const words = t("%s processes used %s", numberText(all.processes), sizeText(all.memory_bytes));
  const free = freeBytes === null ? "" : t("%s were free", sizeText(freeBytes));
  return [timeText(time), words, free].filter(Boolean).join(" · ");
}

function showReport(sheet, report, kill) {
  const bars = barsOf(report, kill);
  const heading = t("The largest processes at that moment");
  const box = element("div", {class: "chart bars"});
  sheet.show(
      element("p", {class: "hint"}, sumText(report)), box, legend(bars),
      report.problems.map((problem) => element("p", {class: "problem"}, problem.message)),
      barTable(heading, bars));
  if (report.all.processes === 0)
    box.remove();
  else
    drawChart(sheet, box, heading, barConfig(bars));
}

// Opens a sheet with the report that tells of the kill.
export function openKillReport(kill) {
  const sheet = openSheet(t("When %s was ended", killedName(kill)));
  const load = async () => {
    sheet.show(loading());
    try {
      const report = await look(["kills", `--report=${kill.report}`]);
      if (sheet.isShown) showReport(sheet, report, kill);
    } catch (failure) {
      if (sheet.isShown) sheet.show(failureCard(failure, load));
    }
  };
  load();
}
