// Elements that several views use: headings, cards, marks of verdicts, and what is shown on a failure.
import {iconAddress, logIn} from "./api.js";
import {button, element, icon, replace} from "./dom.js";
import {tryAgain} from "./live.js";
import {megabytesOf, sizeText, t} from "./text.js";

const kinds = {
  held: "good",
  overridden: "bad",
  "not-applied-yet": "wait",
  "stale-status": "wait",
  "not-running": "idle",
  "switched-off": "idle",
};

// How a verdict looks: good, bad, wait or idle.
export function kindOf(verdict) {
  return kinds[verdict] || "wait";
}

export function mark(kind, text) {
  return element("span", {class: `mark ${kind}`}, text);
}

export function section(title, ...children) {
  return element("section", {class: "section"}, element("h2", {}, title), children);
}

export function card(...children) {
  return element("div", {class: "card"}, children);
}

export function loading() {
  return element("div", {class: "card loading", role: "status"}, t("Loading…"));
}

export function emptyCard(sentence, ...next) {
  return element("div", {class: "card empty"}, element("p", {}, sentence), next);
}

export function refreshButton(work) {
  const node = button("", work, "round");
  node.setAttribute("aria-label", t("Load again"));
  node.append(icon("refresh"));
  return node;
}

const colours = 6;
// The apps whose icons this page has shown: they are drawn at once, so that a list that is drawn anew stays
// the same.
const loadedIcons = new Set();

function iconOf(app) {
  return element("img", {alt: "", src: iconAddress(app)});
}

// The icon of the app with this bundle identifier, or a letter on a colour that stays the same for the
// same name.
export function avatar(name, app = null) {
  let sum = 0;
  for (const letter of name) sum = (sum * 31 + letter.codePointAt(0)) % 9973;
  const letter = [...name.replace(/^com\.[^.]+\./, "")][0] || "?";
  const shown = loadedIcons.has(app) ? iconOf(app) : letter.toUpperCase();
  const node = element("span", {class: `avatar colour${sum % colours}`, "aria-hidden": "true"}, shown);
  if (!app || loadedIcons.has(app)) return node;
  const image = iconOf(app);
  image.addEventListener("load", () => {
    loadedIcons.add(app);
    replace(node, image);
  });
  return node;
}

// "602 MB, at most 642 MB so far", or that the kernel tells nothing.
export function memoryWords(memory) {
  if (!memory) return t("The kernel does not tell its memory.");
  return t("%s, at most %s so far", sizeText(memory.used_bytes), sizeText(memory.peak_bytes));
}

// How much of its limit a process uses, as a bar.
export function limitBar(memory) {
  if (!memory || !memory.limit_mb) return null;
  const used = Math.min(100, (megabytesOf(memory.used_bytes) / memory.limit_mb) * 100);
  const bar = element("span", {class: used > 80 ? "bar-fill bad" : "bar-fill"});
  bar.style.width = `${used}%`;
  return element("span", {class: "bar", "aria-hidden": "true"}, bar);
}

// A person may paste the key or the whole address.
function keyIn(text) {
  const found = /[0-9a-f]{32}/i.exec(text);
  return found ? found[0].toLowerCase() : "";
}

function keyForm() {
  const input = element("input", {
    type: "text",
    id: "key",
    class: "input",
    autocomplete: "off",
    autocapitalize: "off",
    spellcheck: "false",
    placeholder: "http://127.0.0.1:8717/#key=…",
  });
  const problem = element("p", {class: "problem", role: "alert"});
  const submit = async (event) => {
    event.preventDefault();
    problem.textContent = "";
    const key = keyIn(input.value);
    if (!key) {
      problem.textContent = t("A key has 32 digits and letters from a to f.");
      return;
    }
    try {
      await logIn(key);
    } catch (failure) {
      problem.textContent = failure.message;
    }
  };
  return element(
      "form", {class: "stack", onSubmit: submit},
      element("label", {"for": "key"}, t("Key, or the whole address")), input, problem,
      element("button", {type: "submit", class: "button primary"}, t("Unlock")));
}

const sentences = {
  "no-key": [
    "This browser does not have the key yet.",
    "Paste the address that the installation printed, or the line of the file com.zel.vorlatch.web.key. " +
        "The home screen asks for it once more."
  ],
  unreachable: [
    "Vorlatch does not answer.", "It starts when this page asks. If this stays, install the package again."
  ],
  "too-many": ["That was too much at once.", "Wait a few seconds, then try again."],
};

// A sentence, the next step, and a button for it.
export function failureCard(failure, retry) {
  const [sentence, next] = sentences[failure.kind] || [null, null];
  const again = () => {
    tryAgain();
    retry();
  };
  return element(
      "div", {class: "card failure", role: "alert"},
      element("h2", {}, sentence ? t(sentence) : t("That did not work.")),
      element("p", {}, next ? t(next) : failure.message),
      failure.kind === "no-key" ? keyForm() : button(t("Try again"), again, "primary"));
}
