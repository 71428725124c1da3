// An edit in three steps: what it will do, by the command's own dry run; the edit; the way back.
import {firstFailure, run} from "./api.js";
import {button, element, replace} from "./dom.js";
import {failureCard, loading} from "./pieces.js";
import {keyLabel, valueText} from "./settings.js";
import {closeSheet, openSheet} from "./sheet.js";
import {t, withoutOptions} from "./text.js";

const shownMax = 12;
const toastMs = 12000;
const changeListeners = new Set();
let toastTimer = 0;

// Calls the listener after each edit. Returns a function that ends this.
export function onEdit(listener) {
  changeListeners.add(listener);
  return () => changeListeners.delete(listener);
}

function told(...sentences) {
  return sentences.flat().filter(Boolean).map((sentence) => element("p", {}, sentence));
}

function changeRow({path, before, after}) {
  const key = path[path.length - 1];
  const target = path.length > 2 ? path[1] : null;
  return element(
      "li", {class: "change"},
      element("span", {class: "change-key"}, target ? `${target} · ${keyLabel(key)}` : keyLabel(key)),
      element(
          "span", {class: "change-values"}, element("span", {class: "before"}, valueText(key, before)),
          element("span", {"aria-label": t("becomes")}, " → "),
          element("strong", {}, valueText(key, after))));
}

// The differences of an edit, for people.
export function changeList(changes) {
  const more = changes.length - shownMax;
  return [
    element("ul", {class: "changes"}, changes.slice(0, shownMax).map(changeRow)),
    more > 0 ? element("p", {class: "hint"}, t("and %s more", more)) : null
  ];
}

function warningList(warnings = []) {
  return warnings.map(
      (warning) =>
          element("p", {class: "problem"}, `${warning.path.slice(1).join(" · ")} ${warning.message}`));
}

function cancelButton(sheet) {
  return button(t("Cancel"), sheet.close);
}

// Options stand behind the command's name, before "--".
function withOption(words, option) {
  return [words[0], option, ...words.slice(1)];
}

// The guard's reason. Only a refusal that --force overrides offers to go on.
function showRefusal(sheet, edit, error) {
  const canForce = /--force/.test(error.message) && !edit.words.includes("--force");
  const forced = {...edit, words: withOption(edit.words, "--force"), danger: true};
  sheet.show(
      element(
          "div", {class: "refusal", role: "alert"},
          element("h3", {}, canForce ? t("Vorlatch advises against this") : t("That did not work.")),
          element("p", {}, withoutOptions(error.message))),
      element(
          "div", {class: "buttons"},
          canForce ? button(t("Set it anyway"), () => preview(sheet, forced), "danger") : null,
          edit.back ? button(t("Change it"), edit.back, "primary") : null, cancelButton(sheet)));
}

function showPreview(sheet, edit, output) {
  const changes = output.changes || [];
  const isNothing = output.changes !== undefined && changes.length === 0;
  const go = () => carryOut(sheet, edit);
  sheet.show(
      told(edit.explain), changes.length > 0 ? changeList(changes) : null,
      isNothing ? element("p", {}, t("Nothing would change: it is set like this already.")) : null,
      warningList(output.warnings),
      element(
          "div", {class: "buttons"},
          isNothing ? null : button(edit.confirm || t("Do it"), go, edit.danger ? "danger" : "primary"),
          edit.back ? button(t("Change it"), edit.back) : null, cancelButton(sheet)));
}

async function preview(sheet, edit) {
  sheet.show(told(edit.explain), loading());
  try {
    const dryRun = withOption(edit.words, "--dry-run");
    const {status, output, error} = edit.hasNoDryRun ? {status: 0, output: {}} : await run(dryRun);
    if (!sheet.isShown) return;
    if (status >= firstFailure)
      showRefusal(sheet, edit, error);
    else
      showPreview(sheet, edit, output || {});
  } catch (failure) {
    sheet.show(failureCard(failure, () => preview(sheet, edit)));
  }
}

async function carryOut(sheet, edit) {
  sheet.show(loading());
  try {
    const {status, output, error} = await run(edit.words);
    if (status >= firstFailure) return showRefusal(sheet, edit, error);
    sheet.close();
    showToast(doneText(edit, output || {}), !edit.hasNoUndo);
    changeListeners.forEach((listener) => listener());
    return edit.done ? edit.done() : undefined;
  } catch (failure) {
    return sheet.show(failureCard(failure, () => carryOut(sheet, edit)));
  }
}

function doneText(edit, output) {
  if (output.applied === false && output.written) {
    return t("Written. The daemon does not run: it applies this when it starts.");
  }
  return edit.said || t("Done. The daemon applies it now.");
}

// Opens the sheet of an edit: {title, explain, words, confirm, said, danger, hasNoDryRun, hasNoUndo,
// back, done}. `explain` is a sentence or several; `back` returns to where the value was chosen.
export function proposeEdit(edit, sheet = openSheet(edit.title)) {
  return preview(sheet, edit);
}

// Number 1 takes the last edit back, 2 the last but one, as in vorlatchctl undo.
export function proposeUndo(number = 1) {
  proposeEdit({
    title: t("Undo"),
    explain: t("This puts the settings back as they were before. You can undo this, too."),
    words: ["undo", String(number)],
    confirm: t("Put it back"),
    said: t("Put back. The daemon applies it now."),
  });
}

export function showToast(text, canUndo = false) {
  const place = document.getElementById("toast");
  const hide = () => {
    replace(place);
    document.documentElement.classList.remove("has-toast");
  };
  document.documentElement.classList.add("has-toast");
  clearTimeout(toastTimer);
  const undo = () => {
    hide();
    closeSheet();
    proposeUndo();
  };
  replace(
      place,
      element(
          "div", {class: "toast"}, element("span", {}, text),
          canUndo ? button(t("Undo"), undo, "toast-button") : null));
  toastTimer = setTimeout(hide, toastMs);
}
