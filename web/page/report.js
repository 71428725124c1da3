// What a bug report needs, as text to read, copy or share; names of apps and remarks are replaced.
import {showToast} from "./actions.js";
import {look, run} from "./api.js";
import {button, element} from "./dom.js";
import {failureCard, loading} from "./pieces.js";
import {openSheet} from "./sheet.js";
import {t} from "./text.js";

const commands = [["doctor"], ["status"], ["check"], ["plan"], ["kills"], ["log", "-n", "200"]];

// A bundle identifier, as it stands anywhere: in the log, also that of a former target.
const identifierPattern = /\b[A-Za-z][\w-]*(?:\.[\w-]+){2,}/g;

function isOfSystem(identifier) {
  return !identifier || /^com\.(apple|zel)\./.test(identifier);
}

// Processes of the system have the same names on every device; an app's name tells about its owner.
// A process that was ended counts as an app unless one of the system with this name runs.
function privateNames(text, processes, kills, targets) {
  const system = new Set(
      processes.filter((process) => isOfSystem(process.bundle_identifier)).map((process) => process.name));
  const apps = processes.filter((process) => !isOfSystem(process.bundle_identifier));
  const ended = kills.map((kill) => kill.process).filter((name) => !system.has(name));
  const others = targets.map(({target}) => target).filter((name) => !system.has(name));
  const identifiers = (text.match(identifierPattern) || []).filter((name) => !isOfSystem(name));
  const names = [...apps.map((process) => process.name), ...ended, ...others, ...identifiers];
  return [...new Set(names)].filter((name) => name && !/^com\.(apple|zel)\./.test(name));
}

// A short name is replaced only where no letter or digit touches it.
function replaced(text, name, stand) {
  if (name.length > 3) return text.split(name).join(stand);
  const escaped = name.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  return text.replace(new RegExp(`(^|[^\\w-])${escaped}(?![\\w-])`, "g"), `$1${stand}`);
}

function withoutNames(text, names) {
  const numbered =
      names.map((name, index) => [name, `app-${index + 1}`]).sort((a, b) => b[0].length - a[0].length);
  return numbered.reduce((changed, [name, stand]) => replaced(changed, name, stand), text);
}

function withoutWords(key, value) {
  return value && (key === "Remark" || key === "display_name") ? "…" : value;
}

async function answerText(words) {
  const {status, output, error} = await run(words);
  return `## ${words.join(" ")} (${status})\n${JSON.stringify(output || error, withoutWords, 1)}\n`;
}

async function collectReport() {
  const {processes} = await look(["ps"]);
  const {kills} = await look(["kills"]);
  const {targets} = await look(["status"]);
  const texts = [`${navigator.userAgent}\n`];
  for (const words of commands) texts.push(await answerText(words));
  const text = texts.join("\n");
  return withoutNames(text, privateNames(text, processes, kills, targets));
}

async function copy(area) {
  try {
    await navigator.clipboard.writeText(area.value);
    showToast(t("Copied."));
  } catch {
    area.select();
    showToast(t("Copying is not allowed here. The text is selected: copy it by hand."));
  }
}

function shareButton(area) {
  if (!navigator.share) return null;
  // A reader who changes their mind ends the share with an error that means nothing.
  return button(t("Share…"), () => navigator.share({text: area.value}).catch(() => {}));
}

async function openText(heading, sentence, collect) {
  const sheet = openSheet(heading);
  sheet.show(loading());
  try {
    const area =
        element("textarea", {class: "input report", readonly: true, rows: "14", "aria-label": heading});
    area.value = await collect();
    if (!sheet.isShown) return;
    sheet.show(
        element("p", {}, sentence), area,
        element(
            "div", {class: "buttons"}, button(t("Copy"), () => copy(area), "primary"), shareButton(area)));
  } catch (failure) {
    sheet.show(failureCard(failure, () => openText(heading, sentence, collect)));
  }
}

export function openReport() {
  openText(
      t("Report"), t("Read it before you pass it on. Apps are called app-1, app-2 and so on."),
      collectReport);
}

export function openExport() {
  openText(
      t("Settings"), t("All settings as they are stored, with your remarks."),
      async () => JSON.stringify((await look(["export"])).preferences, null, 2));
}
