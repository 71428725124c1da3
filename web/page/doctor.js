// Doctor: what is wrong and the next step, the edits that can be taken back, and what helps a bug report.
import {onEdit} from "./actions.js";
import {look} from "./api.js";
import {bandText} from "./bands.js";
import {button, element, replace} from "./dom.js";
import {historySection} from "./history.js";
import {card, failureCard, loading, memoryWords, refreshButton, section} from "./pieces.js";
import {openExport, openReport} from "./report.js";
import {t} from "./text.js";

export const title = () => t("Doctor");

function findingNode(message, nextStep) {
  return element(
      "li", {class: "finding"}, element("strong", {}, message),
      nextStep ? element("p", {}, t("Next step: %s", nextStep)) : null);
}

function wellNode() {
  const words = element(
      "div", {}, element("h2", {}, t("All in order")),
      element("p", {class: "hint"}, t("The installation has no finding.")));
  return element(
      "div", {class: "card all-well"}, element("span", {class: "big-mark good", "aria-hidden": "true"}, "✓"),
      words);
}

function findingSection(heading, nodes) {
  return nodes.length > 0 ? section(heading, card(element("ul", {class: "rows"}, nodes))) : null;
}

// Where a finding of "check" is: target and key, or the file itself.
function placeOf(path, file) {
  return path.length > 1 ? path.slice(1).join(" · ") : path[0] || file.split("/").pop();
}

function findingNodes(doctor, check) {
  const installation = doctor.findings.map((finding) => findingNode(finding.message, finding.next_step));
  const settings =
      check.findings.map(({path, message}) => findingNode(`${placeOf(path, check.file)} ${message}`, null));
  if (installation.length + settings.length === 0) return wellNode();
  return [
    findingSection(t("Findings"), installation), findingSection(t("Findings in the settings"), settings)
  ];
}

function fact(name, value) {
  return [element("dt", {}, name), element("dd", {}, value)];
}

function fileText(file) {
  if (!file.exists) return t("missing");
  return `${file.path} · ${t("mode %s", file.mode)} · ${t("%s bytes", file.size_bytes)}`;
}

function daemonFacts(daemons) {
  if (daemons.length === 0) return fact(t("Daemon"), t("does not run"));
  return daemons.flatMap((daemon) => fact(t("Daemon"), [
                           t("process %s", daemon.pid), t("band %s", bandText(daemon.band)),
                           `nice ${daemon.nice === null ? "–" : daemon.nice}`, memoryWords(daemon.memory)
                         ].join(" · ")));
}

function factNodes(doctor) {
  return section(
      t("This installation"),
      card(element(
          "dl", {class: "facts"}, daemonFacts(doctor.daemons), fact(t("System"), doctor.kernel.system),
          fact(t("Root"), doctor.root_prefix.path),
          doctor.files.flatMap(
              (file, index) =>
                  fact([t("Settings"), t("State"), t("Log")][index] || t("File"), fileText(file))),
          fact(
              t("Rights"),
              doctor.is_root ? t("root: the kernel answers in full") :
                               t("not root: the kernel answers only in part")))));
}

function helpNodes() {
  return section(
      t("For a bug report"),
      card(
          element(
              "p", {},
              t("Everything that helps to find a fault, without the names of your apps and your remarks.")),
          element(
              "div", {class: "buttons"}, button(t("Show the report"), openReport, "primary"),
              button(t("Show the settings"), openExport))));
}

export function show(page) {
  const state = element("div", {}, loading());
  const facts = element("div", {});
  const history = element("div", {});
  const load = async () => {
    try {
      const doctor = await look(["doctor"]);
      const check = await look(["check"]);
      if (!page.isShown) return;
      replace(state, findingNodes(doctor, check));
      replace(facts, factNodes(doctor));
    } catch (failure) {
      if (page.isShown) replace(state, failureCard(failure, load));
    }
  };
  replace(
      page.body,
      element(
          "div", {class: "tools"}, element("p", {class: "lead"}, t("How Vorlatch stands on this device")),
          refreshButton(load)),
      state, history, facts, helpNodes());
  page.onLeave(onEdit(load));
  historySection(page, history);
  load();
}
